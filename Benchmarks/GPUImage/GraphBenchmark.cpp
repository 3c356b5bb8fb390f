// The graph against the same draws in bare GL, in one process and on one thread.

#include <algorithm>
#include <cstdlib>
#include <functional>
#include <limits>
#include <memory>
#include <vector>

#include "Support/BareGL.h"
#include "Support/Comparison.h"
#include "Support/ResourceCount.h"
#include "Support/ThreadTime.h"

namespace tavrel::benchmarks {
namespace {

constexpr int kFilters = 8;
constexpr std::uint32_t kGray = 0xff808080;

/// The input, and a chain of filters that copy, by the graph and by hand.
class PassthroughChains {
 public:
  PassthroughChains(int width, int height) : size_{double(width), double(height)} {
    for (int i = 0; i < kFilters; ++i) {
      filters_.push_back(std::make_shared<TavrelGPUImageFilter>());
      if (i > 0) filters_[i - 1]->addTarget(filters_[i]);
    }
    bare_.use();
    pass_ =
        std::make_unique<BarePass>(kTavrelGPUImageVertexShaderString, kTavrelGPUImagePassthroughFragmentShaderString);
    const std::vector<std::uint32_t> gray(static_cast<std::size_t>(width) * height, kGray);
    input_ = std::make_unique<BareTexture>(width, height, gray.data());
    // As few targets as do: two take turns.
    for (int i = 0; i < 2; ++i) targets_.emplace_back(width, height);
    glFinish();
    framebuffer_ = std::make_shared<TavrelGPUImageFramebuffer>(size_, input_->name());
    BareContext::useGraph();
  }

  void drawBare(int draws = kFilters) {
    bare_.use();
    const BareTexture* input = input_.get();
    for (int i = 0; i < draws; ++i) {
      pass_->draw(*input, targets_[i % 2]);
      input = &targets_[i % 2].texture();
    }
    glFinish();
  }

  /// Whether the latest draw came through, by whichever way it was made.
  static bool isGrayAtOrigin() {
    std::uint32_t pixel = 0;
    glReadPixels(0, 0, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, &pixel);
    return pixel == kGray;
  }

  void drawGraph() {
    BareContext::useGraph();
    filters_.front()->setInputFramebuffer(framebuffer_, 0);
    filters_.front()->setInputSize(size_, 0);
    TavrelGPUImageOutput::sendFrame(*filters_.front(), MediaTime::indefinite(), 0);
    glFinish();
  }

 private:
  Size size_;
  BareContext bare_;
  std::vector<std::shared_ptr<TavrelGPUImageFilter>> filters_;
  std::unique_ptr<BarePass> pass_;
  std::unique_ptr<BareTexture> input_;
  std::vector<BareTarget> targets_;
  std::shared_ptr<TavrelGPUImageFramebuffer> framebuffer_;
};

ResourceCount madeInHundredFrames(const std::function<void()>& draw) {
  const ResourceCount before = ResourceCount::now();
  for (int i = 0; i < 100; ++i) draw();
  return ResourceCount::now() - before;
}

/// Microseconds of processor time that one repetition takes this thread, which other programs do not lengthen: the
/// least of several blocks.
double processorTime(int repetitions, const std::function<void()>& work) {
  double least = std::numeric_limits<double>::infinity();
  for (int block = 0; block < 9; ++block) {
    const double start = test::threadTime();
    for (int i = 0; i < repetitions; ++i) work();
    least = std::min(least, (test::threadTime() - start) * 1e6 / repetitions);
  }
  return least;
}

void passthroughChain(benchmark::State& state) {
  const auto width = static_cast<int>(state.range(0));
  const auto height = static_cast<int>(state.range(1));
  const int repetitions = width < 100 ? 2000 : 20;
  for (auto iteration : state) {
    TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
      const ResourceCount start = ResourceCount::now();
      PassthroughChains chains(width, height);
      chains.drawGraph();
      state.counters["gl_objects_of_first_frame"] = static_cast<double>((ResourceCount::now() - start).glObjects);
      const Comparison comparison = compare(
          21, repetitions, [&] { chains.drawBare(); }, [&] { chains.drawGraph(); });
      report(state, comparison);
      const char* const choice = std::getenv("TAVREL_FUSE");
      const int draws = choice && std::string_view(choice) == "0" ? kFilters : 1;
      state.counters["own_us_per_node"] = (processorTime(repetitions, [&] { chains.drawGraph(); }) -
                                           processorTime(repetitions, [&] { chains.drawBare(draws); })) /
                                          kFilters;

      chains.drawBare();
      require(PassthroughChains::isGrayAtOrigin(), "drawing by hand");
      chains.drawGraph();
      require(PassthroughChains::isGrayAtOrigin(), "drawing by the graph");
      // The driver makes buffers of its own; what counts is what the graph adds.
      const ResourceCount limit = madeInHundredFrames([&] { chains.drawBare(); });
      const ResourceCount own = madeInHundredFrames([&] { chains.drawGraph(); });
      state.counters["gl_objects"] = static_cast<double>(own.glObjects);
      state.counters["large_buffers"] = static_cast<double>(own.largeBuffers);
      state.counters["limit_large_buffers"] = static_cast<double>(limit.largeBuffers);
    });
  }
}
BENCHMARK(passthroughChain)
    ->Args({1280, 720})
    ->Args({640, 480})
    ->Args({16, 16})
    ->ArgNames({"width", "height"})
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

/// What measuring costs: the same chain with `TavrelTracing` off (the limit) and on.
void tracedChain(benchmark::State& state) {
  constexpr int kFrames = 1000;
  const bool hasFile = state.range(0) != 0;
  const auto drawFrames = [](PassthroughChains& chains) {
    TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
      for (int i = 0; i < kFrames; ++i) chains.drawGraph();
    });
  };
  for (auto iteration : state) {
    std::unique_ptr<PassthroughChains> chains;
    TavrelRunSynchronouslyOnVideoProcessingQueue([&] { chains = std::make_unique<PassthroughChains>(16, 16); });
    const Comparison comparison = compare(
        15, 1, [&] { drawFrames(*chains); },
        [&] {
          require(TavrelTracing::start(hasFile ? "/dev/null" : "").has_value(), "the start of tracing");
          drawFrames(*chains);
          require(TavrelTracing::stop().has_value(), "the end of tracing");
        });
    report(state, comparison);
    state.counters["us_per_node"] = (comparison.own - comparison.limit) * 1000 / kFrames / kFilters;
    require(TavrelTracing::statistics().nodes.at(0).queueTime.count == std::uint64_t{kFrames} * kFilters, "counting");
    TavrelRunSynchronouslyOnVideoProcessingQueue([&] { chains.reset(); });
  }
}
BENCHMARK(tracedChain)->Arg(0)->Arg(1)->ArgName("file")->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);

/// A piece of work that is marked, and nothing else: off, and on with the trace.
void emptySpan(benchmark::State& state) {
  const bool isOn = state.range(0) != 0;
  if (isOn) require(TavrelTracing::start("/dev/null").has_value(), "the start of tracing");
  const TraceName name = Tracer::name("empty");
  for (auto iteration : state) {
    const TraceSpan span(name);
    benchmark::ClobberMemory();
  }
  require(TavrelTracing::stop().has_value(), "the end of tracing");
}
BENCHMARK(emptySpan)->Arg(0)->Arg(1)->ArgName("on");

}  // namespace
}  // namespace tavrel::benchmarks

BENCHMARK_MAIN();
