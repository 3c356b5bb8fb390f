#include <utility>

#include "Capture/Video/Private/CameraImplementation.h"
#include "GPUImage/TavrelGPUImageFramebuffer.h"
#include "Platform/Capture/CaptureClock.h"
#include "Platform/Tracing/FrameTrace.h"
#include "Platform/Tracing/TraceNames.h"
#include "Platform/Tracing/TraceSpan.h"
#include "Platform/Tracing/Tracer.h"

namespace tavrel {
namespace {

void drop(std::atomic<std::uint64_t>& counter, TraceName reason) {
  ++counter;
  if (Tracer::isOn()) Tracer::drop(TraceNames::shared().cameraStage, reason);
}

void traceDelivery() {
  const TraceNames& names = TraceNames::shared();
  Tracer::count(names.framesDelivered);
  if (const FrameTrace frame = FrameTrace::current(); frame.number > 0) {
    Tracer::latency(names.toDelegate, frame.arrival);
  }
}

Size sizeOf(const PixelBuffer& pixelBuffer) {
  return {static_cast<double>(pixelBuffer.width()), static_cast<double>(pixelBuffer.height())};
}

}  // namespace

void TavrelCamera::Implementation::process(const std::shared_ptr<SampleBuffer>& sampleBuffer,
                                           const std::shared_ptr<CaptureConnection>& connection) {
  const TraceNames& names = TraceNames::shared();
  const FrameTrace::Scope frame(FrameTrace::currentOrArriving());
  const TraceSpan span(names.camera);
  if (Tracer::isOn()) Tracer::count(names.framesIn);
  // Held while the camera is switched or the chain rebuilt.
  const std::unique_lock lock(cameraOutputLock, std::try_to_lock);
  std::shared_ptr<PixelBuffer> pixelBuffer = sampleBuffer->imageBuffer();
  if (!lock || shouldBlur || connection != session.frameConnection() || !pixelBuffer) {
    return drop(whileSwitching, names.whileSwitching);
  }
  if (!running || isInBackground) return drop(whileNotRunning, names.whileNotRunning);
  const Size originalSize = sizeOf(*pixelBuffer);
  if (hasOrientationOfOldCamera(originalSize)) return drop(whileSwitching, names.whileSwitching);
  chain->refreshCropRegion(originalSize, wishes.get(&TavrelCameraConfiguration::size));
  if (chain->setZoom(zoomOfChain())) chain->refreshGPUImagePipeline(chainForm(chainSize));

  const SampleTiming timing = sampleBuffer->timingEntries().front();
  const MediaTime frameTime = CaptureClock::current()->now();
  pixelBuffer = effects.prepareFrame(std::move(pixelBuffer), timing, frameTime);
  {
    const std::lock_guard frameGuard(frameMutex);
    sampleTimeDuration = timing.duration;
    lastBuffer = pixelBuffer;
    captureTimes[nextCaptureTime] = {frameTime, timing.presentationTimeStamp};
  }
  if (!chain->process(pixelBuffer, frameTime, false)) return drop(busy, names.busy);
  nextCaptureTime = (nextCaptureTime + 1) % captureTimes.size();
  ++processed;
}

bool TavrelCamera::Implementation::hasOrientationOfOldCamera(Size frameSize) const {
  const CaptureVideoOrientation orientation = session.videoOrientation();
  const bool isPortrait =
      orientation == CaptureVideoOrientation::portrait || orientation == CaptureVideoOrientation::portraitUpsideDown;
  if (isPortrait ? frameSize.height >= frameSize.width : frameSize.width >= frameSize.height) return false;
  TAVREL_LOG_DEBUG(kCameraLogTag, "switching camera, skipping frame of width : {:.0f}, height : {:.0f}",
                   frameSize.width, frameSize.height);
  return true;
}

void TavrelCamera::Implementation::completeFrame(const std::shared_ptr<TavrelGPUImageFramebuffer>& framebuffer,
                                                 MediaTime frameTime) {
  // Only the picture of a snapshot has no time.
  if (!frameTime.isValid()) snapshots.answer(*framebuffer);
  if (!running) {
    if (frameTime.isValid() && captureTimeOf(frameTime)) --processed, ++whileNotRunning;
    return;
  }
  const auto owner = camera.lock();
  const auto listener = receiver();
  if (!owner || !listener) return;
  const TraceSpan span(TraceNames::shared().cameraDelegate);
  if (Tracer::isOn()) traceDelivery();
  SampleTiming timing = {.duration = {}, .presentationTimeStamp = frameTime, .decodeTimeStamp = MediaTime::invalid()};
  {
    const std::lock_guard lock(frameMutex);
    timing.duration = sampleTimeDuration;
  }
  listener->didGetProcessedFramebuffer(*owner, framebuffer, timing);
}

std::optional<MediaTime> TavrelCamera::Implementation::captureTimeOf(MediaTime frameTime) const {
  const std::lock_guard lock(frameMutex);
  for (const auto& [arrival, captured] : captureTimes) {
    if (arrival == frameTime) return captured;
  }
  return std::nullopt;
}

void TavrelCamera::Implementation::processStillImage(Expected<std::shared_ptr<SampleBuffer>> still,
                                                     SnapshotCompletion completion) {
  const auto pixelBuffer = CameraSnapshots::pixelBufferOf(still);
  if (!pixelBuffer) {
    completion(nullptr, pixelBuffer.error());
    return;
  }
  // One that is asked for behind a change of effects shows the new ones.
  chainChange->wait([] { return false; });
  snapshots.add(std::move(completion));
  const std::lock_guard lock(cameraOutputLock);
  const SampleTiming timing = (*still)->timingEntries().front();
  chain->process(effects.prepareFrame(*pixelBuffer, timing, MediaTime::invalid()), MediaTime::invalid(), true);
}

}  // namespace tavrel
