#include "Capture/Video/Private/CameraSnapshots.h"

#include <utility>

#include "GPUImage/TavrelGPUImageFramebuffer.h"
#include "Platform/Capture/CaptureStillImageOutput.h"
#include "Platform/Dispatch/DispatchQueue.h"
#include "Platform/Graphics/PixelBufferSnapshot.h"
#include "Platform/Imaging/BitmapContext.h"
#include "Platform/Imaging/ImageSource.h"

namespace tavrel {
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

}  // namespace

Expected<std::shared_ptr<PixelBuffer>> CameraSnapshots::pixelBufferOf(
    const Expected<std::shared_ptr<SampleBuffer>>& still) {
  return still
      .and_then([](const auto& sample) { return CaptureStillImageOutput::jpegStillImageRepresentation(sample); })
      .and_then([](const Data& jpeg) { return ImageSource::create(jpeg, "the still image"); })
      .and_then([](const auto& source) { return source->imageAtIndex(0); })
      .and_then([](const auto& image) { return createPixelBuffer(*image); });
}

void CameraSnapshots::add(Completion completion) {
  const std::lock_guard lock(snapshotLock);
  snapshotCompletionHandlers.push_back(std::move(completion));
}

void CameraSnapshots::answer(TavrelGPUImageFramebuffer& framebuffer) {
  Completion completion;
  {
    const std::lock_guard lock(snapshotLock);
    if (snapshotCompletionHandlers.empty()) return;
    completion = std::move(snapshotCompletionHandlers.front());
    snapshotCompletionHandlers.pop_front();
  }
  std::shared_ptr<Image> image;
  if (const auto pixelBuffer = framebuffer.pixelBuffer()) {
    framebuffer.lockForReading();
    image = pixelBufferToImage(*pixelBuffer);
    framebuffer.unlockAfterReading();
  } else {
    framebuffer.lock();
    image = framebuffer.newCGImageFromFramebufferContents();
  }
  DispatchQueue::global()->async([completion = std::move(completion), image] { completion(image, std::nullopt); });
}

}  // namespace tavrel
