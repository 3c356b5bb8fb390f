// What a frame costs the video-processing queue when a preview view shows it, against the same draw into a texture that
// nobody shows. Both take turns at 30 frames a second each, while the display behaves in different ways.

#include <atomic>
#include <chrono>
#include <thread>
#include <vector>

#include "Platform/Graphics/GLDrawable.h"
#include "Support/BareGL.h"
#include "Support/Comparison.h"
#include "Support/ResourceCount.h"

namespace tavrel::benchmarks {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr int kWidth = 640;
constexpr int kHeight = 480;
constexpr int kFrames = 300;
constexpr auto kRefresh = std::chrono::nanoseconds(1s) / 60;

/// How the main thread shows the view during a run.
enum Display {
  kNobodyLooks,   ///< the view is in no window
  kWindow,        ///< a window composites it at 60 Hz
  kSlowDisplay,   ///< the same, and the main thread keeps each shown picture and blocks for the rest of the refresh
  kStuckDisplay,  ///< the window's main thread keeps a picture and stands still all the time
};

struct Times {
  std::vector<double> queued;  ///< until the queue was free again, in milliseconds
  std::vector<double> drawn;   ///< until the picture was drawn
};

void measure(Times& times, const std::function<void()>& frame) {
  glFinish();
  const auto start = Clock::now();
  frame();
  times.queued.push_back(millisecondsSince(start));
  glFinish();
  times.drawn.push_back(millisecondsSince(start));
}

/// One picture, sent to a view and drawn by hand. Frames are made on the video-processing queue.
class Frames {
 public:
  explicit Frames(std::shared_ptr<TavrelGPUImageView> view) : view_(std::move(view)) {
    TavrelRunSynchronouslyOnVideoProcessingQueue([this] {
      bare_.use();
      const std::vector<std::uint32_t> gray(static_cast<std::size_t>(kWidth) * kHeight, 0xff808080);
      texture_ = std::make_unique<BareTexture>(kWidth, kHeight, gray.data());
      framebuffer_ = std::make_shared<TavrelGPUImageFramebuffer>(Size{kWidth, kHeight}, texture_->name());
      pass_ =
          std::make_unique<BarePass>(kTavrelGPUImageVertexShaderString, kTavrelGPUImagePassthroughFragmentShaderString);
      for (int i = 0; i < 3; ++i) targets_.emplace_back(kWidth, kHeight);
      glFinish();
      BareContext::useGraph();
    });
  }

  void run(int count) {
    auto due = Clock::now();
    for (int i = 0; i < 2 * count; ++i) {
      TavrelRunSynchronouslyOnVideoProcessingQueue([&] { i % 2 == 0 ? drawBare(i / 2) : drawInView(); });
      std::this_thread::sleep_until(due += kRefresh);
    }
  }
  void drawInView() {
    BareContext::useGraph();
    measure(viewTimes, [this] {
      view_->setInputFramebuffer(framebuffer_, 0);
      view_->setInputSize({kWidth, kHeight}, 0);
      view_->newFrameReadyAtTime(MediaTime::indefinite(), 0);
    });
  }

  Times bareTimes;
  Times viewTimes;

 private:
  void drawBare(int number) {
    bare_.use();
    measure(bareTimes, [&] {
      pass_->draw(*texture_, targets_[static_cast<std::size_t>(number % 3)]);
      glFlush();
    });
    BareContext::useGraph();
  }

  std::shared_ptr<TavrelGPUImageView> view_;
  BareContext bare_;
  std::unique_ptr<BareTexture> texture_;
  std::unique_ptr<BarePass> pass_;
  std::vector<BareTarget> targets_;
  std::shared_ptr<TavrelGPUImageFramebuffer> framebuffer_;
};

void showAs(Display display, const TavrelGPUImageView& view, const std::atomic<bool>& isOver) {
  const auto drawable = std::static_pointer_cast<DrawableLayer>(view.layer())->drawable();
  std::shared_ptr<const GLDrawableFrame> onScreen;
  while (!isOver) {
    if (display != kStuckDisplay) RunLoop::main().runFor(1ms);
    if (display == kSlowDisplay) {
      onScreen = drawable->latestFrame();
      std::this_thread::sleep_for(kRefresh - 2ms);
    }
    if (display == kStuckDisplay) {
      if (!onScreen) onScreen = drawable->latestFrame();
      std::this_thread::sleep_for(kRefresh);
    }
  }
}

void previewView(benchmark::State& state) {
  const auto display = static_cast<Display>(state.range(0));
  const auto window = Window::create("benchmark", {kWidth, kHeight});
  require(window.has_value(), "Window::create, which needs an X server such as Xvfb,");
  const auto view = std::make_shared<TavrelGPUImageView>(Rect{{0, 0}, {kWidth, kHeight}});
  if (display != kNobodyLooks) (*window)->rootView()->addSubview(view);
  RunLoop::main().runFor(200ms);

  for (auto _ : state) {
    Frames frames(view);
    std::atomic<bool> isOver = false;
    const auto shownBefore = (*window)->framesShown();
    ResourceCount made;
    std::thread source([&] {
      frames.run(30);  // textures and programs come into being
      frames.bareTimes = {};
      frames.viewTimes = {};
      const ResourceCount before = ResourceCount::now();
      frames.run(kFrames);
      made = ResourceCount::now() - before;
      isOver = true;
    });
    showAs(display, *view, isOver);
    source.join();

    state.SetIterationTime(quantile(frames.viewTimes.drawn, 0.5) / 1000);
    state.counters["limit_ms"] = quantile(frames.bareTimes.drawn, 0.5);
    state.counters["ratio"] = quantile(frames.viewTimes.drawn, 0.5) / quantile(frames.bareTimes.drawn, 0.5);
    state.counters["limit_p95"] = quantile(frames.bareTimes.drawn, 0.95);
    state.counters["p95_ms"] = quantile(frames.viewTimes.drawn, 0.95);
    state.counters["queued_ms"] = quantile(frames.viewTimes.queued, 0.5);
    state.counters["queued_max"] = quantile(frames.viewTimes.queued, 1);
    state.counters["limit_queued"] = quantile(frames.bareTimes.queued, 0.5);
    state.counters["limit_queued_max"] = quantile(frames.bareTimes.queued, 1);
    state.counters["shown"] = static_cast<double>((*window)->framesShown() - shownBefore);
    state.counters["objects"] = static_cast<double>(made.glObjects);
  }
}
BENCHMARK(previewView)
    ->ArgName("display")
    ->DenseRange(kNobodyLooks, kStuckDisplay)
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace tavrel::benchmarks

BENCHMARK_MAIN();
