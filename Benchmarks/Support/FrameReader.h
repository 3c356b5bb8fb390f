#pragma once

#include <cstdint>
#include <cstring>
#include <memory>
#include <utility>
#include <vector>

#include "TavrelCaptureBase.h"

namespace tavrel::benchmarks {

/// Reads each frame back, as a program does that hands frames on.
class FrameReader : public TavrelGPUImageInput {
 public:
  void setInputFramebuffer(std::shared_ptr<TavrelGPUImageFramebuffer> framebuffer, Index) override {
    frame_ = TavrelGPUImageFramebufferLease(std::move(framebuffer));
  }
  void newFrameReadyAtTime(MediaTime, Index) override {
    const auto buffer = frame_.get()->pixelBuffer();
    buffer->lockBaseAddress(PixelBufferLock::readOnly);
    if (keepsBytes) {
      const std::size_t rowBytes = buffer->width() * 4;
      bytes.resize(rowBytes * buffer->height());
      for (std::size_t row = 0; row < buffer->height(); ++row) {
        std::memcpy(&bytes[row * rowBytes], buffer->baseAddress() + row * buffer->bytesPerRow(), rowBytes);
      }
    }
    buffer->unlockBaseAddress(PixelBufferLock::readOnly);
    frame_.release();
  }

  bool keepsBytes = false;
  std::vector<std::uint8_t> bytes;  ///< of the last frame kept: B, G, R, A, rows without padding

 private:
  TavrelGPUImageFramebufferLease frame_;
};

}  // namespace tavrel::benchmarks
