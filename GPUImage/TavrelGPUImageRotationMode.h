#pragma once

#include <cstdint>

#include "Platform/Foundation/Geometry.h"

namespace tavrel {

/// How a consumer rotates or mirrors its input. The values are stable.
enum TavrelGPUImageRotationMode : std::uint64_t {
  kTavrelGPUImageNoRotation = 0,
  kTavrelGPUImageRotateLeft = 1,
  kTavrelGPUImageRotateRight = 2,
  kTavrelGPUImageFlipVertical = 3,
  kTavrelGPUImageFlipHorizontal = 4,
  kTavrelGPUImageRotateRightFlipVertical = 5,
  kTavrelGPUImageRotateRightFlipHorizontal = 6,
  kTavrelGPUImageRotate180 = 7,
};

/// True for the modes that exchange width and height.
constexpr bool TavrelGPUImageRotationSwapsWidthAndHeight(TavrelGPUImageRotationMode rotation) {
  return rotation == kTavrelGPUImageRotateLeft || rotation == kTavrelGPUImageRotateRight ||
         rotation == kTavrelGPUImageRotateRightFlipVertical || rotation == kTavrelGPUImageRotateRightFlipHorizontal;
}

/// `size` after rotation.
constexpr Size TavrelGPUImageRotatedSize(Size size, TavrelGPUImageRotationMode rotation) {
  return TavrelGPUImageRotationSwapsWidthAndHeight(rotation) ? Size{size.height, size.width} : size;
}

}  // namespace tavrel
