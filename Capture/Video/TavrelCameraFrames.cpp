#include <utility>

#include "Capture/Video/TavrelCamera.h"
#include "Effects/TavrelCaptureEffect.h"
#include "GPUImage/TavrelGPUImageContext.h"
#include "Platform/Capture/CaptureClock.h"
#include "Platform/Graphics/PixelBufferSnapshot.h"
#include "Platform/Imaging/BitmapContext.h"
#include "Platform/Imaging/ImageSource.h"
#include "Platform/Tracing/FrameTrace.h"
#include "Platform/Tracing/TraceNames.h"
#include "Platform/Tracing/TraceSpan.h"
#include "TavrelBase/Log/TavrelLogger.h"
#include "TavrelBase/Utils/TavrelUtils.h"

namespace tavrel {

constexpr const char* kTag = "TavrelCamera";

namespace {

/// Shares the bytes.
std::shared_ptr<Image> pixelBufferToImage(PixelBuffer& pixelBuffer) {
  using Held = std::shared_ptr<const PixelBufferSnapshot>;
  const Held snapshot = pixelBuffer.snapshot();
  if (!snapshot) return nullptr;
  const auto provider =
      DataProvider::create(new Held(snapshot), snapshot->bytes(), snapshot->bytesPerRow() * snapshot->height(),
                           [](void* held, const void*, std::size_t) { delete static_cast<Held*>(held); });
  return Image::create(snapshot->width(), snapshot->height(), 8, 32, snapshot->bytesPerRow(), kBitmapPremultipliedBGRA,
                       provider);
}

Expected<std::shared_ptr<PixelBuffer>> createPixelBuffer(const Image& image) {
  return PixelBuffer::create(image.width(), image.height(), PixelFormat::bgra32).map([&](const auto& pixelBuffer) {
    pixelBuffer->lockBaseAddress(PixelBufferLock::readWrite);
    const auto context = BitmapContext::create(pixelBuffer->baseAddress(), image.width(), image.height(), 8,
                                               pixelBuffer->bytesPerRow(), kBitmapPremultipliedBGRA);
    context->drawImage(image, {{0, 0}, {static_cast<double>(image.width()), static_cast<double>(image.height())}});
    pixelBuffer->unlockBaseAddress(PixelBufferLock::readWrite);
    return pixelBuffer;
  });
}

Size sizeOf(const PixelBuffer& pixelBuffer) {
  return {static_cast<double>(pixelBuffer.width()), static_cast<double>(pixelBuffer.height())};
}

}  // namespace

void TavrelCamera::didOutputSampleBuffer(TavrelSampleBufferDelegateProxy&,
                                         const std::shared_ptr<SampleBuffer>& sampleBuffer,
                                         const std::shared_ptr<CaptureConnection>& connection) {
  const FrameTrace::Scope frame(FrameTrace::currentOrArriving());
  const TraceSpan span(TraceNames::shared().camera);
  if (Tracer::isOn()) Tracer::count(TraceNames::shared().framesIn);
  // Held while the camera is switched or the chain rebuilt.
  const std::unique_lock lock(cameraOutputLock, std::try_to_lock);
  std::shared_ptr<PixelBuffer> pixelBuffer = sampleBuffer->imageBuffer();
  if (!lock || shouldBlur || connection != videoConnection(*dataOutput) || !pixelBuffer) {
    return drop(whileSwitching_, TraceNames::shared().whileSwitching);
  }
  if (!running_ || isInBackground) return drop(whileNotRunning_, TraceNames::shared().whileNotRunning);
  if (hasOrientationOfOldCamera(pixelBuffer->width(), pixelBuffer->height())) {
    return drop(whileSwitching_, TraceNames::shared().whileSwitching);
  }
  originalSize = sizeOf(*pixelBuffer);
  refreshCropRegion();

  const SampleTiming timing = sampleBuffer->timingEntries().front();
  write(sampleTimeDuration, timing.duration);
  const MediaTime frameTime = CaptureClock::current()->now();
  lastBuffer = applyPerFrameEffects(std::move(pixelBuffer), timing, frameTime);
  for (const auto& picture : picturesNeedToBeProcessed) picture->processImage();
  if (!pixelBufferInput->processCVPixelBuffer(lastBuffer, frameTime, false)) {
    return drop(busy_, TraceNames::shared().busy);
  }
  ++processed_;
}

void TavrelCamera::drop(std::atomic<std::uint64_t>& counter, TraceName reason) {
  ++counter;
  if (Tracer::isOn()) Tracer::drop(TraceNames::shared().cameraStage, reason);
}

TavrelCameraStatistics TavrelCamera::statistics() const {
  TavrelCameraStatistics statistics;
  statistics.processed = processed_;
  statistics.late = dataOutput->droppedFrames();
  statistics.busy = busy_;
  statistics.whileSwitching = whileSwitching_;
  statistics.whileNotRunning = whileNotRunning_;
  statistics.delivered =
      statistics.processed + statistics.late + statistics.busy + statistics.whileSwitching + statistics.whileNotRunning;
  return statistics;
}

bool TavrelCamera::hasOrientationOfOldCamera(std::size_t width, std::size_t height) const {
  const CaptureVideoOrientation orientation = videoOrientation();
  const bool isPortrait =
      orientation == CaptureVideoOrientation::portrait || orientation == CaptureVideoOrientation::portraitUpsideDown;
  if (isPortrait ? height >= width : width >= height) return false;
  TAVREL_LOG_DEBUG(kTag, "switching camera, skipping frame of width : {}, height : {}", width, height);
  return true;
}

std::shared_ptr<PixelBuffer> TavrelCamera::applyPerFrameEffects(std::shared_ptr<PixelBuffer> pixelBuffer,
                                                                const SampleTiming& timing, MediaTime frameTime) {
  const auto effects = read(captureEffects_);
  for (const auto& effect : *effects) pixelBuffer = effect->prepareFrame(pixelBuffer, timing, frameTime);
  return pixelBuffer;
}

void TavrelCamera::refreshCropRegion() {
  if (originalSize == previeousOriginalSize) return;
  previeousOriginalSize = originalSize;
  const Size wanted = size();
  const float a = static_cast<float>(originalSize.width) / static_cast<float>(originalSize.height);
  const float b = static_cast<float>(wanted.width) / static_cast<float>(wanted.height);
  const Rect region = a <= b ? Rect{{0, (1 - a / b) / 2}, {1, a / b}} : Rect{{(1 - b / a) / 2, 0}, {b / a, 1}};
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] { cropFilter->setCropRegion(region); });
}

void TavrelCamera::completeFrame(TavrelGPUImageOutput& output, MediaTime frameTime) {
  // A copy: the delegate may draw again.
  // NOLINTNEXTLINE(performance-unnecessary-copy-initialization)
  const std::shared_ptr<TavrelGPUImageFramebuffer> framebuffer = output.framebufferForOutput();
  // Only the picture of a snapshot has no time.
  if (!frameTime.isValid()) answerSnapshot(framebuffer);
  if (const auto receiver = delegate()) {
    const TraceSpan span(TraceNames::shared().cameraDelegate);
    if (Tracer::isOn()) traceDelivery();
    receiver->didGetProcessedFramebuffer(*this, framebuffer,
                                         {read(sampleTimeDuration), frameTime, MediaTime::invalid()});
  }
}

void TavrelCamera::traceDelivery() {
  const TraceNames& names = TraceNames::shared();
  Tracer::count(names.framesDelivered);
  if (const FrameTrace frame = FrameTrace::current(); frame.number > 0) {
    Tracer::latency(names.toDelegate, frame.arrival);
  }
}

void TavrelCamera::answerSnapshot(const std::shared_ptr<TavrelGPUImageFramebuffer>& framebuffer) {
  SnapshotCompletion completion;
  {
    const std::lock_guard lock(snapshotLock);
    if (snapshotCompletionHandlers.empty()) return;
    completion = std::move(snapshotCompletionHandlers.front());
    snapshotCompletionHandlers.erase(snapshotCompletionHandlers.begin());
  }
  std::shared_ptr<Image> image;
  if (const auto pixelBuffer = framebuffer->pixelBuffer()) {
    framebuffer->lockForReading();
    image = pixelBufferToImage(*pixelBuffer);
    framebuffer->unlockAfterReading();
  } else {
    framebuffer->lock();
    image = framebuffer->newCGImageFromFramebufferContents();
  }
  DispatchQueue::global()->async([completion = std::move(completion), image] { completion(image, std::nullopt); });
}

void TavrelCamera::snapshotWithCompletion(SnapshotCompletion completion) {
  const auto connection = videoConnection(*stillImageOutput);
  if (!connection) {
    DispatchQueue::global()->async([completion = std::move(completion)] {
      completion(nullptr, TavrelNewError(kTavrelErrorCode, "snapshot not available"));
    });
    return;
  }
  stillImageOutput->captureStillImageAsynchronously(
      connection, [camera = shared_from_this(), completion = std::move(completion)](auto sampleBuffer) {
        camera->setPreferredTorchMode(camera->preferredTorchMode());
        camera->processStillImage(std::move(sampleBuffer), completion);
      });
}

void TavrelCamera::processStillImage(Expected<std::shared_ptr<SampleBuffer>> sampleBuffer,
                                     SnapshotCompletion completion) {
  const auto pixelBuffer =
      sampleBuffer
          .and_then([](const auto& sample) { return CaptureStillImageOutput::jpegStillImageRepresentation(sample); })
          .and_then([](const Data& jpeg) { return ImageSource::create(jpeg, "the still image"); })
          .and_then([](const auto& source) { return source->imageAtIndex(0); })
          .and_then([](const auto& image) { return createPixelBuffer(*image); });
  if (!pixelBuffer) {
    completion(nullptr, pixelBuffer.error());
    return;
  }
  {
    const std::lock_guard lock(snapshotLock);
    snapshotCompletionHandlers.push_back(std::move(completion));
  }
  const std::lock_guard lock(cameraOutputLock);
  const std::shared_ptr<PixelBuffer> picture =
      applyPerFrameEffects(*pixelBuffer, (*sampleBuffer)->timingEntries().front(), MediaTime::invalid());
  for (const auto& each : picturesNeedToBeProcessed) each->processImage();
  pixelBufferInput->processCVPixelBuffer(picture, MediaTime::invalid(), true);
}

}  // namespace tavrel
