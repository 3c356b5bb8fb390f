#include "GPUImage/Destinations/TavrelGPUImageCameraOutput.h"

#include <fmt/format.h>

#include <algorithm>
#include <atomic>
#include <mutex>
#include <optional>
#include <utility>

#include "GPUImage/Destinations/Private/MoviePainter.h"
#include "GPUImage/Private/NodeSpan.h"
#include "GPUImage/Private/SharedValue.h"
#include "GPUImage/TavrelGPUImageFramebufferLease.h"
#include "Platform/Capture/CameraFeed.h"
#include "Platform/Capture/CaptureError.h"
#include "Platform/Dispatch/DispatchQueue.h"
#include "Platform/Foundation/Finite.h"
#include "Platform/Graphics/PixelBufferPool.h"

namespace tavrel {
namespace {

using Configuration = TavrelGPUImageCameraOutput::Configuration;

Expected<std::vector<CameraFeedFormat>> formatsOf(std::string_view layouts) {
  constexpr std::pair<std::string_view, CameraFeedFormat> kNames[] = {
      {"bgra", CameraFeedFormat::bgra}, {"nv12", CameraFeedFormat::nv12}, {"yuy2", CameraFeedFormat::yuy2}};
  std::vector<CameraFeedFormat> formats;
  while (!layouts.empty()) {
    const std::string_view name = layouts.substr(0, layouts.find(','));
    const auto* const found =
        std::find_if(std::begin(kNames), std::end(kNames), [&](const auto& known) { return known.first == name; });
    if (found == std::end(kNames)) {
      return failure(CaptureErrorCode::invalidConfiguration,
                     fmt::format("there is no layout \"{}\": expected nv12, yuy2 or bgra", name));
    }
    formats.push_back(found->second);
    layouts.remove_prefix(std::min(name.size() + 1, layouts.size()));
  }
  return formats;
}

/// What the feed's events, the node and the painting on the writer queue share.
struct Shared {
  explicit Shared(Size size) : painter(size) {}

  /// Draws the frame on the writer queue and shows it.
  void paint(const TavrelGPUImageFramebuffer& framebuffer) {
    std::shared_ptr<PixelBuffer> picture = painter.readyPixelBuffer(framebuffer);
    if (!picture && painter.renderAtInternalSizeUsingFramebuffer(framebuffer, *pool)) {
      picture = painter.drawnPixelBuffer(*pool);
    }
    auto snapshot = picture ? picture->snapshot() : nullptr;
    if (snapshot && feed->hasReaders()) feed->show(std::move(snapshot));
  }

  MoviePainter painter;
  std::shared_ptr<PixelBufferPool> pool;
  SharedValue<std::function<void(bool)>> readersHandler;
  SharedValue<std::function<void(const Error&)>> failureHandler;
  std::atomic<bool> isPaused = false;
  std::atomic<bool> isEnabled = true;
  std::atomic<bool> isPainting = false;
  /// Readers came, or came back, and have not been shown anything. Shared with the feed's events, which must not hold
  /// more of this: the feed cannot end on its own thread.
  const std::shared_ptr<std::atomic<bool>> needsPicture = std::make_shared<std::atomic<bool>>(true);
  std::unique_ptr<CameraFeed> feed;  // the last: its events use the rest
};

/// Tells a handler on the main thread, unless the node is gone by then.
template <typename Handler, typename Value>
void tellOnMain(const std::weak_ptr<Shared>& weakShared, SharedValue<Handler> Shared::*handler, Value value) {
  DispatchQueue::main()->async([weakShared, handler, value = std::move(value)] {
    const auto shared = weakShared.lock();
    if (const Handler call = shared ? ((*shared).*handler).get() : nullptr) call(value);
  });
}

class CameraOutput : public TavrelGPUImageCameraOutput {
 public:
  explicit CameraOutput(std::shared_ptr<Shared> shared) : shared_(std::move(shared)) {}
  ~CameraOutput() override {
    TavrelRunSynchronouslyOnVideoProcessingQueue([this] { input_ = {}; });
  }

  bool hasReaders() const override { return shared_->feed->hasReaders(); }
  int readerCount() const override { return shared_->feed->readerCount(); }
  void setReadersHandler(std::function<void(bool)> handler) override {
    shared_->readersHandler.set(std::move(handler));
    // Those that came before are told of, too.
    if (hasReaders()) tellOnMain(std::weak_ptr(shared_), &Shared::readersHandler, true);
  }
  void setFailureHandler(std::function<void(const Error&)> handler) override { shared_->failureHandler.set(handler); }
  bool isPaused() const override { return shared_->isPaused; }
  void setPaused(bool newValue) override { shared_->isPaused = newValue; }
  std::uint64_t sentFrames() const override {
    const CameraFeed::Counts counts = shared_->feed->counts();
    return counts.shown + counts.repeated;
  }

  void newFrameReadyAtTime(MediaTime frameTime, Index atIndex) override;
  void setInputFramebuffer(std::shared_ptr<TavrelGPUImageFramebuffer> newInputFramebuffer, Index) override {
    // Without a reader nothing is to be drawn, which a framebuffer may be that somebody holds.
    input_ = {};
    if (wantsFrame()) input_ = TavrelGPUImageFramebufferLease(std::move(newInputFramebuffer));
  }
  void setInputRotation(TavrelGPUImageRotationMode newInputRotation, Index) override {
    shared_->painter.setInputRotation(newInputRotation);
  }
  Size maximumOutputSize() const override { return shared_->painter.videoSize(); }
  bool enabled() const override { return wantsFrame(); }

 private:
  bool wantsFrame() const { return hasReaders() && (!shared_->isPaused || *shared_->needsPicture); }

  const std::shared_ptr<Shared> shared_;
  TavrelGPUImageFramebufferLease input_;
};

void CameraOutput::newFrameReadyAtTime(MediaTime, Index) {
  const NodeSpan span(*this);
  TavrelGPUImageFramebufferLease input = std::move(input_);
  // What comes while a frame is being painted is late for this one and early for the next.
  if (!input || !wantsFrame() || shared_->isPainting.exchange(true)) return;
  *shared_->needsPicture = false;
  // The frame must be drawn, and complete, before another context reads it.
  (void)input.texture();
  TavrelGPUImageContext::useImageProcessingContext();
  input = shared_->painter.scaled(std::move(input));
  glFinish();
  shared_->painter.movieWriterContext()->contextQueue()->async([shared = shared_, framebuffer = input.detach()] {
    shared->paint(*framebuffer);
    framebuffer->unlock();
    shared->isPainting = false;
  });
}

}  // namespace

Expected<std::shared_ptr<TavrelGPUImageCameraOutput>> TavrelGPUImageCameraOutput::create(
    const Configuration& configuration) {
  const auto formats = formatsOf(configuration.layouts);
  if (!formats) return tl::unexpected(formats.error());
  const Size size = isFinite(configuration.size) ? configuration.size : Size();
  const int width = static_cast<int>(std::clamp(size.width, 0.0, 1e6));
  const int height = static_cast<int>(std::clamp(size.height, 0.0, 1e6));
  const auto shared = std::make_shared<Shared>(Size{static_cast<double>(width), static_cast<double>(height)});
  const std::weak_ptr<Shared> weak = shared;
  const CameraFeed::Events events = {[weak, needsPicture = shared->needsPicture](bool hasReaders) {
                                       *needsPicture = true;
                                       tellOnMain(weak, &Shared::readersHandler, hasReaders);
                                     },
                                     [weak](const Error& error) { tellOnMain(weak, &Shared::failureHandler, error); }};
  auto feed = CameraFeed::create(configuration.destination,
                                 {.name = configuration.name,
                                  .width = width,
                                  .height = height,
                                  .framesPerSecond = configuration.framesPerSecond,
                                  .formats = *formats},
                                 events);
  if (!feed) return tl::unexpected(feed.error());
  if (auto prepared = shared->painter.prepare(); !prepared) return tl::unexpected(prepared.error());
  auto pool =
      PixelBufferPool::create(static_cast<std::size_t>(width), static_cast<std::size_t>(height), PixelFormat::bgra32);
  if (!pool) return tl::unexpected(pool.error());
  shared->pool = std::move(*pool);
  shared->feed = std::move(*feed);
  return std::make_shared<CameraOutput>(shared);
}

}  // namespace tavrel
