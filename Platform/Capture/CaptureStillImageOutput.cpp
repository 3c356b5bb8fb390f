#include "Platform/Capture/CaptureStillImageOutput.h"

#include <chrono>
#include <deque>
#include <mutex>
#include <utility>

#include "Platform/Capture/CaptureError.h"
#include "Platform/Capture/Private/CaptureDeviceImplementation.h"
#include "Platform/Capture/Private/CaptureSource.h"
#include "Platform/Capture/Private/CaptureSystem.h"
#include "Platform/Dispatch/DispatchQueue.h"
#include "Platform/Graphics/PixelBuffer.h"
#include "Platform/Imaging/ImageDestination.h"

namespace tavrel {
namespace {

constexpr std::chrono::seconds kPatience(5);
/// How many pictures pass between lighting the flash and one that was certainly exposed with it.
constexpr int kPicturesUntilLit = 3;

struct Request {
  std::uint64_t number = 0;
  CaptureStillImageOutput::Handler handler;
};

/// The lamp for a still: automatic is left to cameras that measure the light, of which we know none.
bool wantsFlash(const CaptureControls& controls) { return controls.flashMode == CaptureFlashMode::on; }

}  // namespace

struct CaptureStillImageOutput::Implementation {
  const std::shared_ptr<DispatchQueue> queue = DispatchQueue::create("tavrel.still");
  std::mutex mutex;
  std::uint64_t lastNumber = 0;
  std::deque<Request> requests;
  int picturesUntilLit = -1;  // counts down while the flash is on; -1: it is off

  void answer(Request request, Expected<std::shared_ptr<SampleBuffer>> result) const {
    queue->async([handler = std::move(request.handler), result = std::move(result)]() mutable {
      if (handler) handler(std::move(result));
    });
  }

  /// With the mutex held.
  void answerAll(CaptureErrorCode code, const std::string& reason) {
    for (Request& request : requests) answer(std::move(request), failure(code, reason));
    requests.clear();
  }
};

std::shared_ptr<CaptureStillImageOutput> CaptureStillImageOutput::create() {
  return std::shared_ptr<CaptureStillImageOutput>(new CaptureStillImageOutput);
}

CaptureStillImageOutput::CaptureStillImageOutput()
    : CaptureOutput(MediaType::video), implementation_(std::make_unique<Implementation>()) {}

CaptureStillImageOutput::~CaptureStillImageOutput() {
  const std::lock_guard lock(implementation_->mutex);
  implementation_->answerAll(CaptureErrorCode::stopped, "the still image output is gone");
}

void CaptureStillImageOutput::captureStillImageAsynchronously(const std::shared_ptr<CaptureConnection>& connection,
                                                              Handler handler) {
  Implementation& output = *implementation_;
  const std::lock_guard lock(output.mutex);
  Request request{++output.lastNumber, std::move(handler)};
  if (!connection || connection != connectionWithMediaType(MediaType::video)) {
    return output.answer(std::move(request),
                         failure(CaptureErrorCode::invalidConnection, "the connection is not one of this output"));
  }
  if (!isRunning()) {
    return output.answer(std::move(request),
                         failure(CaptureErrorCode::notRunning, "the session does not run; start it first"));
  }
  if (auto error = CaptureSystem::shared().virtualBackend().refusals().stillImage) {
    return output.answer(std::move(request), tl::unexpected(std::move(*error)));
  }
  output.requests.push_back(std::move(request));
  output.queue->asyncAfter(kPatience, [weak = weak_from_this(), number = output.lastNumber] {
    const auto self = weak.lock();
    if (!self) return;
    Implementation& late = *self->implementation_;
    const std::lock_guard guard(late.mutex);
    if (late.requests.empty() || late.requests.front().number > number) return;
    late.answerAll(CaptureErrorCode::deviceSilent, "the camera has delivered no picture for five seconds");
  });
}

void CaptureStillImageOutput::deliver(const std::shared_ptr<SampleBuffer>& sample, CaptureSource& source) {
  Implementation& output = *implementation_;
  const std::lock_guard lock(output.mutex);
  if (output.requests.empty()) {
    // The request that lit the lamp was given up.
    if (std::exchange(output.picturesUntilLit, -1) >= 0) {
      source.driver()->apply(CaptureControl::torch, CaptureSystem::controlsOf(*source.device()));
    }
    return;
  }
  const auto connection = connectionWithMediaType(MediaType::video);
  if (!connection) return;
  const CaptureControls controls = CaptureSystem::controlsOf(*source.device());
  if (wantsFlash(controls)) {
    if (output.picturesUntilLit < 0) {
      CaptureControls lit = controls;
      lit.torchMode = CaptureTorchMode::on;
      source.driver()->apply(CaptureControl::torch, lit);
      output.picturesUntilLit = kPicturesUntilLit;
      return;
    }
    if (--output.picturesUntilLit > 0) return;
    output.picturesUntilLit = -1;
    source.driver()->apply(CaptureControl::torch, controls);
  }
  auto picture = source.turned(sample, *connection);
  for (Request& request : output.requests) {
    if (picture) {
      output.answer(std::move(request), picture);
    } else {
      output.answer(std::move(request),
                    failure(CaptureErrorCode::outOfMemory, "there is no memory left for a picture"));
    }
  }
  output.requests.clear();
}

void CaptureStillImageOutput::deliverDrop(const SampleTiming&) {}

void CaptureStillImageOutput::deliveryEnded() {
  const std::lock_guard lock(implementation_->mutex);
  implementation_->answerAll(CaptureErrorCode::stopped, "the session stopped before a picture was taken");
  implementation_->picturesUntilLit = -1;  // a device that is opened again gets its own settings
}

Expected<Data> CaptureStillImageOutput::jpegStillImageRepresentation(
    const std::shared_ptr<SampleBuffer>& sampleBuffer) {
  const auto picture = sampleBuffer ? sampleBuffer->imageBuffer() : nullptr;
  if (!picture) return failure(CaptureErrorCode::noPicture, "the sample buffer holds no picture");
  picture->lockBaseAddress(PixelBufferLock::readOnly);
  const std::size_t byteCount = picture->bytesPerRow() * picture->height();
  auto bytes = DataProvider::create(nullptr, picture->baseAddress(), byteCount, nullptr);
  const auto image = Image::create(picture->width(), picture->height(), 8, 32, picture->bytesPerRow(),
                                   kBitmapOpaqueBGRX, std::move(bytes));
  auto encoded = ImageDestination::encode(image, "image/jpeg");
  picture->unlockBaseAddress(PixelBufferLock::readOnly);
  if (!encoded) return failure(CaptureErrorCode::encodingFailed, encoded.error().description);
  return encoded;
}

}  // namespace tavrel
