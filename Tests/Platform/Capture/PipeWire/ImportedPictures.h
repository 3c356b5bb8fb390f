#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "PipeWireProducer.h"
#include "Support/GraphTestSupport.h"

namespace tavrel::test {

// PipeWire 0.3 compares the lower halves alone.
inline constexpr std::int64_t kLinear = 0;
inline constexpr std::int64_t kTiled = 0x0100000000000001;       // of some device, which no display here knows
inline constexpr std::int64_t kUpsideDown = 0x7F00000000000003;  // of the driver of the tests
inline constexpr std::int64_t kExternalOnly = 0x7F00000000000002;
inline constexpr int kWidth = 64;
inline constexpr int kHeight = 48;

/// The picture of a number, which tells each pixel from its neighbours.
inline Pixel colorOf(std::uint32_t number, int x, int y) {
  return {(static_cast<int>(number) * 16 + x) % 256, (x * 3 + y) % 256, (y * 5 + 7) % 256, 255};
}

/// Where red, green and blue are in four bytes of a format; the fourth is noise.
inline std::array<std::size_t, 4> placesOf(spa_video_format format) {
  switch (format) {
    case SPA_VIDEO_FORMAT_RGBx:
    case SPA_VIDEO_FORMAT_RGBA: return {0, 1, 2, 3};
    case SPA_VIDEO_FORMAT_xRGB: return {1, 2, 3, 0};
    case SPA_VIDEO_FORMAT_xBGR: return {3, 2, 1, 0};
    default: return {2, 1, 0, 3};
  }
}

inline auto painterOf(spa_video_format format, bool isUpsideDown = false) {
  return [=](std::size_t, std::uint8_t* bytes, std::size_t stride, std::uint32_t number) {
    const auto places = placesOf(format);
    for (int y = 0; y < kHeight; ++y) {
      std::uint8_t* const row = bytes + static_cast<std::size_t>(isUpsideDown ? kHeight - 1 - y : y) * stride;
      for (int x = 0; x < kWidth; ++x) {
        const Pixel color = colorOf(number, x, y);
        std::uint8_t* const pixel = row + x * 4;
        pixel[places[0]] = static_cast<std::uint8_t>(color.r);
        pixel[places[1]] = static_cast<std::uint8_t>(color.g);
        pixel[places[2]] = static_cast<std::uint8_t>(color.b);
        pixel[places[3]] = static_cast<std::uint8_t>(x);
      }
    }
    return stride * (kHeight - 1) + kWidth * 4;
  };
}

/// What the graph draws of a camera's picture.
class Graph {
 public:
  Graph() { input_->addTarget(filter_); }
  ~Graph() {
    TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
  }
  Graph(const Graph&) = delete;
  Graph& operator=(const Graph&) = delete;

  Picture draw(const std::shared_ptr<PixelBuffer>& buffer) {
    show(buffer);
    const auto image = filter_->newCGImageFromCurrentlyProcessedOutput();
    return image ? pictureOf(*image) : Picture();
  }

  void show(const std::shared_ptr<PixelBuffer>& buffer) {
    filter_->useNextFrameForImageCapture();  // which makes it draw
    input_->processCVPixelBuffer(buffer, true);
    TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
  }
  void letGo() {
    input_ = nullptr;
    filter_ = nullptr;
  }

 private:
  std::shared_ptr<TavrelGPUImageCVPixelBufferInput> input_ = std::make_shared<TavrelGPUImageCVPixelBufferInput>();
  std::shared_ptr<TavrelGPUImageFilter> filter_ = std::make_shared<TavrelGPUImageFilter>();
};

inline Picture bytesOf(const std::shared_ptr<PixelBuffer>& buffer) {
  buffer->lockBaseAddress(PixelBufferLock::readOnly);
  Picture picture(static_cast<int>(buffer->width()), static_cast<int>(buffer->height()), [&](int x, int y) {
    const std::uint8_t* const pixel =
        buffer->baseAddress() + static_cast<std::size_t>(y) * buffer->bytesPerRow() + static_cast<std::size_t>(x) * 4;
    return Pixel{pixel[2], pixel[1], pixel[0], pixel[3]};
  });
  buffer->unlockBaseAddress(PixelBufferLock::readOnly);
  return picture;
}

/// The number of the picture, whatever buffer it came in; 16 at most.
inline std::uint32_t numberOf(const Picture& picture) { return static_cast<std::uint32_t>(picture.at(0, 0).r) / 16; }

inline Picture expectedOf(const Picture& shown) {
  return {kWidth, kHeight, [number = numberOf(shown)](int x, int y) { return colorOf(number, x, y); }};
}

}  // namespace tavrel::test
