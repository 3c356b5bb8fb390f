#include <libyuv/planar_functions.h>
#include <libyuv/rotate_argb.h>

#include "Platform/Capture/Private/PictureTurner.h"

namespace tavrel {
namespace {

class LockedPixels {
 public:
  LockedPixels(PixelBuffer& buffer, PixelBufferLock lock) : buffer_(buffer), lock_(lock) {
    buffer_.lockBaseAddress(lock_);
  }
  LockedPixels(const LockedPixels&) = delete;
  LockedPixels& operator=(const LockedPixels&) = delete;
  ~LockedPixels() { buffer_.unlockBaseAddress(lock_); }

  std::uint8_t* bytes() const { return buffer_.baseAddress(); }
  int stride() const { return static_cast<int>(buffer_.bytesPerRow()); }

 private:
  PixelBuffer& buffer_;
  PixelBufferLock lock_;
};

void rotate(PixelBuffer& from, PixelBuffer& to, int degrees) {
  const LockedPixels source(from, PixelBufferLock::readOnly);
  const LockedPixels target(to, PixelBufferLock::readWrite);
  libyuv::ARGBRotate(source.bytes(), source.stride(), target.bytes(), target.stride(), static_cast<int>(from.width()),
                     static_cast<int>(from.height()), static_cast<libyuv::RotationMode>(degrees));
}

void mirror(PixelBuffer& from, PixelBuffer& to) {
  const LockedPixels source(from, PixelBufferLock::readOnly);
  const LockedPixels target(to, PixelBufferLock::readWrite);
  libyuv::ARGBMirror(source.bytes(), source.stride(), target.bytes(), target.stride(), static_cast<int>(from.width()),
                     static_cast<int>(from.height()));
}

}  // namespace

std::shared_ptr<PixelBuffer> PictureTurner::makeBuffer(std::size_t width, std::size_t height) {
  if (!pool_ || pool_->width() != width || pool_->height() != height) {
    auto pool = PixelBufferPool::create(width, height, PixelFormat::bgra32);
    if (!pool) return nullptr;
    pool_ = std::move(*pool);
  }
  auto buffer = pool_->createPixelBuffer();
  return buffer ? *buffer : nullptr;
}

std::shared_ptr<SampleBuffer> PictureTurner::turned(const std::shared_ptr<SampleBuffer>& sample, int degrees,
                                                    bool mirrored) {
  if (degrees == 0 && !mirrored) return sample;
  if (lastResult_ && lastSource_.lock() == sample && lastDegrees_ == degrees && lastMirrored_ == mirrored) {
    return lastResult_;
  }
  lastResult_ = nullptr;
  auto picture = sample->imageBuffer();
  if (!picture) return nullptr;
  const auto original = picture;
  if (degrees != 0) {
    const bool isSideways = degrees == 90 || degrees == 270;
    auto rotated = makeBuffer(isSideways ? picture->height() : picture->width(),
                              isSideways ? picture->width() : picture->height());
    if (!rotated) return nullptr;
    rotate(*picture, *rotated, degrees);
    picture = std::move(rotated);
  }
  if (mirrored) {
    auto exchanged = makeBuffer(picture->width(), picture->height());
    if (!exchanged) return nullptr;
    mirror(*picture, *exchanged);
    picture = std::move(exchanged);
  }
  original->copyPropagatedAttachments(*picture);
  auto result = SampleBuffer::createImage(std::move(picture), sample->timingEntries().front());
  if (!result) return nullptr;
  lastSource_ = sample;
  lastDegrees_ = degrees;
  lastMirrored_ = mirrored;
  lastResult_ = *result;
  return *result;
}

}  // namespace tavrel
