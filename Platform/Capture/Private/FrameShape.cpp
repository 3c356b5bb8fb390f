#include "Platform/Capture/Private/FrameShape.h"

namespace tavrel {

FrameShape FrameShape::of(const RawFrame& frame) {
  switch (frame.layout) {
    case FrameLayout::bgra:
    case FrameLayout::rgba:
    case FrameLayout::argb:
    case FrameLayout::abgr: return {.pixelBytes = 4};
    case FrameLayout::bgr24:
    case FrameLayout::rgb24: return {.pixelBytes = 3};
    case FrameLayout::packed: return {.pixelBytes = frame.packed.byteCount};
    case FrameLayout::yuyv:
    case FrameLayout::uyvy:
    case FrameLayout::yvyu:
    case FrameLayout::vyuy: return {.pixelBytes = 4, .isInPairs = true};
    case FrameLayout::nv12:
    case FrameLayout::nv21: return {.planeCount = 2};
    case FrameLayout::nv16:
    case FrameLayout::nv61: return {.planeCount = 2, .isChromaHalfHigh = false};
    case FrameLayout::nv24:
    case FrameLayout::nv42: return {.planeCount = 2, .isChromaHalfWide = false, .isChromaHalfHigh = false};
    case FrameLayout::p010: return {.planeCount = 2, .pixelBytes = 2};
    case FrameLayout::i420:
    case FrameLayout::yv12: return {.planeCount = 3, .isChromaInterleaved = false};
    case FrameLayout::i010: return {.planeCount = 3, .pixelBytes = 2, .isChromaInterleaved = false};
    case FrameLayout::i422:
    case FrameLayout::yv16: return {.planeCount = 3, .isChromaInterleaved = false, .isChromaHalfHigh = false};
    case FrameLayout::i210:
      return {.planeCount = 3, .pixelBytes = 2, .isChromaInterleaved = false, .isChromaHalfHigh = false};
    case FrameLayout::i444:
    case FrameLayout::yv24:
    case FrameLayout::gbr:
      return {.planeCount = 3, .isChromaInterleaved = false, .isChromaHalfWide = false, .isChromaHalfHigh = false};
    case FrameLayout::i410:
      return {.planeCount = 3,
              .pixelBytes = 2,
              .isChromaInterleaved = false,
              .isChromaHalfWide = false,
              .isChromaHalfHigh = false};
    case FrameLayout::gray8: return {};
    case FrameLayout::mjpeg:
    case FrameLayout::h264: break;
  }
  return {.planeCount = 0};
}

}  // namespace tavrel
