#pragma once

#include <cstdint>

#include "Platform/Foundation/Geometry.h"

namespace tavrel {

/// How a consumer turns its input. The values are part of the interface.
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

/// True for the modes that make a landscape picture a portrait one.
constexpr bool TavrelGPUImageRotationSwapsWidthAndHeight(TavrelGPUImageRotationMode rotation) {
  return rotation == kTavrelGPUImageRotateLeft || rotation == kTavrelGPUImageRotateRight ||
         rotation == kTavrelGPUImageRotateRightFlipVertical || rotation == kTavrelGPUImageRotateRightFlipHorizontal;
}

/// The size of a picture after the turn.
constexpr Size TavrelGPUImageRotatedSize(Size size, TavrelGPUImageRotationMode rotation) {
  return TavrelGPUImageRotationSwapsWidthAndHeight(rotation) ? Size{size.height, size.width} : size;
}

}  // namespace tavrel
