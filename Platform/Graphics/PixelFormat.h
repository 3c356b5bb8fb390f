#pragma once

#include <array>
#include <cstddef>
#include <cstdint>

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"

namespace tavrel {

/// Memory layout of a buffer's pixels. The value is the format's four-character code.
enum class PixelFormat : std::uint32_t {
  bgra32 = 0x42475241,                 ///< 'BGRA': four bytes per pixel, blue first
  biPlanar420VideoRange = 0x34323076,  ///< '420v': a plane of Y (16…235) and one of interleaved Cb Cr at half the size
  biPlanar420FullRange = 0x34323066,   ///< '420f': the same with Y in 0…255
  /// 'x420': as '420v' with ten bits a sample, the upper ones of 16 in native order: Y is 64…940 times 64
  biPlanar420VideoRange10 = 0x78343230,
};

/// One plane of a pixel layout.
struct PixelPlane {
  std::size_t width = 0;   ///< in samples; half the image's, rounded up, for Cb Cr
  std::size_t height = 0;  ///< rows
  std::size_t bytesPerSample = 0;
  std::size_t bytesPerRow =
      0;  ///< 4 × width for 'BGRA', more in memory that the GPU shares; a multiple of 64 for the planes of 4:2:0
  std::size_t offset = 0;  ///< from the first byte of the buffer; a multiple of 64
};

/// Planes, sizes and strides of a pixel buffer.
struct TAVREL_API PixelLayout {
  static constexpr std::size_t kMaximumSide = 32767;

  std::size_t width = 0;
  std::size_t height = 0;
  PixelFormat format = PixelFormat::bgra32;
  std::size_t planeCount = 0;
  std::array<PixelPlane, 2> planes;
  std::size_t byteCount = 0;  ///< of all planes

  /// Fails with `GraphicsStatus::invalidSize` if a side is 0 or above `kMaximumSide`, and with `invalidPixelFormat`.
  static Expected<PixelLayout> create(std::size_t width, std::size_t height, PixelFormat format);
};

}  // namespace tavrel
