#pragma once

#include <memory>

#include "Platform/Capture/Virtual/Private/BgraCanvas.h"
#include "Platform/Graphics/PixelBuffer.h"

namespace tavrel {

/// The pixels of a BGRA buffer, locked for writing while this lives.
class PixelBufferCanvas {
 public:
  explicit PixelBufferCanvas(PixelBuffer& buffer) : buffer_(buffer) {
    buffer_.lockBaseAddress(PixelBufferLock::readWrite);
  }
  PixelBufferCanvas(const PixelBufferCanvas&) = delete;
  PixelBufferCanvas& operator=(const PixelBufferCanvas&) = delete;
  ~PixelBufferCanvas() { buffer_.unlockBaseAddress(PixelBufferLock::readWrite); }

  BgraCanvas canvas() const {
    return {buffer_.baseAddress(), buffer_.bytesPerRow(), static_cast<int>(buffer_.width()),
            static_cast<int>(buffer_.height())};
  }

 private:
  PixelBuffer& buffer_;
};

}  // namespace tavrel
