#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "Platform/Graphics/PixelBuffer.h"
#include "TavrelCaptureTesting.h"

namespace tavrel::test {

/// The bytes of a picture, locked for reading while this lives.
class VirtualPicture {
 public:
  explicit VirtualPicture(std::shared_ptr<PixelBuffer> buffer) : buffer_(std::move(buffer)) {
    buffer_->lockBaseAddress(PixelBufferLock::readOnly);
  }
  VirtualPicture(const VirtualPicture&) = delete;
  VirtualPicture& operator=(const VirtualPicture&) = delete;
  ~VirtualPicture() { buffer_->unlockBaseAddress(PixelBufferLock::readOnly); }

  int width() const { return static_cast<int>(buffer_->width()); }
  int height() const { return static_cast<int>(buffer_->height()); }
  const std::uint8_t* pixel(int x, int y) const {
    return buffer_->baseAddress() + static_cast<std::size_t>(y) * buffer_->bytesPerRow() +
           static_cast<std::size_t>(x) * 4;
  }
  std::optional<std::uint32_t> counter() const {
    return SyntheticScene::decodeFrameCounter(pixel(0, 0), buffer_->bytesPerRow(), width(), height());
  }
  bool isFlash() const { return SyntheticScene::isFlash(pixel(0, 0), buffer_->bytesPerRow(), width(), height()); }

 private:
  std::shared_ptr<PixelBuffer> buffer_;
};

}  // namespace tavrel::test
