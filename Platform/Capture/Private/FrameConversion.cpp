#include <fmt/format.h>
#include <libyuv/convert.h>
#include <libyuv/convert_argb.h>
#include <libyuv/planar_functions.h>
#include <turbojpeg.h>

#include <algorithm>
#include <array>
#include <utility>

#include "Platform/Capture/CaptureError.h"
#include "Platform/Capture/Private/FrameConversion.h"
#include "Platform/Capture/Private/FrameShape.h"
#include "Platform/Capture/Private/H264Decoder.h"
#include "Platform/Imaging/PixelRange.h"

namespace tavrel {
namespace {

const libyuv::YuvConstants* constantsOf(const RawFrame& frame) {
  const auto either = [&](const auto& fullRange, const auto* limitedRange, const auto& nearlyIt) {
    return frame.range == FrameRange::full ? &fullRange : limitedRange ? limitedRange : &nearlyIt;
  };
  switch (frame.matrix) {
    case FrameMatrix::bt709: return either(libyuv::kYuvF709Constants, limitedRange709(), libyuv::kYuvH709Constants);
    case FrameMatrix::bt2020: return either(libyuv::kYuvV2020Constants, limitedRange2020(), libyuv::kYuv2020Constants);
    case FrameMatrix::bt601: break;
  }
  return either(libyuv::kYuvJPEGConstants, limitedRange601(), libyuv::kYuvI601Constants);
}

bool hasEnd(const RawFrame& jpeg) {
  constexpr std::array<std::uint8_t, 2> kEnd = {0xFF, 0xD9};
  const auto* end = jpeg.bytes + jpeg.byteCount;
  return std::find_end(jpeg.bytes, end, kEnd.begin(), kEnd.end()) != end;
}

void makeOpaque(std::uint8_t* bytes, int stride, int width, int height) {
  for (int y = 0; y < height; ++y, bytes += stride) {
    for (int x = 0; x < width; ++x) bytes[x * 4 + 3] = 255;
  }
}

/// Whether its numbers are those of colours, or of their one gray, as they are.
bool isOfColors(const RawFrame& frame) {
  switch (frame.layout) {
    case FrameLayout::bgra:
    case FrameLayout::rgba:
    case FrameLayout::argb:
    case FrameLayout::abgr:
    case FrameLayout::bgr24:
    case FrameLayout::rgb24:
    case FrameLayout::gbr:
    case FrameLayout::gray8: return true;
    case FrameLayout::packed: return !frame.packed.isYCbCr;
    default: return false;
  }
}

/// Makes black of 16 and white of 235.
void widenRange(std::uint8_t* bytes, int stride, int width, int height) {
  static const auto table = [] {
    std::array<std::uint8_t, 1024> made{};
    for (int value = 0; value < 256; ++value) {
      const int full = std::clamp(((value - 16) * 255 + 109) / 219, 0, 255);
      for (std::size_t i = 0; i < 3; ++i)
        made.at(static_cast<std::size_t>(value) * 4 + i) = static_cast<std::uint8_t>(full);
      made.at(static_cast<std::size_t>(value) * 4 + 3) = static_cast<std::uint8_t>(value);
    }
    return made;
  }();
  libyuv::ARGBColorTable(bytes, stride, table.data(), 0, 0, width, height);
}

/// The highest eight bits, rounded, of numbers that begin `above` bits below the highest. libyuv would cut the others
/// off, which is seen in saturated colours.
void narrow(const std::uint8_t* row, std::size_t count, int above, std::uint8_t* target) {
  const auto* words = static_cast<const std::uint16_t*>(static_cast<const void*>(row));
  for (std::size_t i = 0; i < count; ++i) {
    target[i] = static_cast<std::uint8_t>(std::min(((words[i] << above & 0xFFFF) + 128) >> 8, 255));
  }
}

bool isOfWords(FrameLayout layout) {
  return layout == FrameLayout::p010 || layout == FrameLayout::i010 || layout == FrameLayout::i210 ||
         layout == FrameLayout::i410;
}

}  // namespace

FrameConverter::FrameConverter() = default;

FrameConverter::~FrameConverter() {
  if (jpeg_) tjDestroy(jpeg_);
}

void FrameConverter::forget() { h264_ = nullptr; }

std::size_t FrameConverter::tightRow(const RawFrame& frame) {
  const auto shape = FrameShape::of(frame);
  return shape.planeCount > 0 ? shape.rowBytes(0, static_cast<std::size_t>(frame.width)) : 0;
}

void FrameConverter::findPaddedRows(RawFrame& frame) {
  const auto shape = FrameShape::of(frame);
  const auto width = static_cast<std::size_t>(frame.width);
  const auto height = static_cast<std::size_t>(frame.height);
  if (shape.planeCount == 0 || frame.chroma[0].bytes) return;
  Planes planes;
  std::size_t end = 0;
  for (std::size_t i = 0; i < shape.planeCount; ++i) {
    const std::size_t row = (shape.rowBytes(i, width) + 3) / 4 * 4;
    const bool isPaired = i == 0 && shape.planeCount > 1 && shape.isChromaHalfHigh;
    const std::size_t rows = isPaired ? 2 * FrameShape::half(height) : shape.rows(i, height);
    planes.at(i) = {frame.bytes + end, row * rows, row};
    end += row * rows;
  }
  if (end != frame.byteCount || frame.bytesPerRow > planes[0].bytesPerRow) return;
  frame.bytesPerRow = planes[0].bytesPerRow;
  if (shape.planeCount == 1) return;
  frame.byteCount = planes[0].byteCount;
  frame.chroma = {planes[1], planes[2]};
}

std::size_t FrameConverter::leastByteCount(const RawFrame& frame) {
  const auto shape = FrameShape::of(frame);
  if (shape.planeCount == 0) return 1;
  const auto width = static_cast<std::size_t>(frame.width);
  const auto height = static_cast<std::size_t>(frame.height);
  const std::size_t last = shape.planeCount - 1;
  std::size_t count = 0;
  for (std::size_t i = 0; i < last; ++i)
    count += shape.bytesPerRow(i, frame.bytesPerRow, width) * shape.rows(i, height);
  const std::size_t stride = shape.bytesPerRow(last, frame.bytesPerRow, width);
  return count + stride * (shape.rows(last, height) - 1) + shape.rowBytes(last, width);
}

Expected<FrameConverter::Planes> FrameConverter::planesOf(const RawFrame& frame) {
  const auto shape = FrameShape::of(frame);
  const auto height = static_cast<std::size_t>(frame.height);
  const bool isInBlocks = frame.chroma[0].bytes != nullptr;
  Planes planes = {{{frame.bytes, frame.byteCount, frame.bytesPerRow}, frame.chroma[0], frame.chroma[1]}};
  if (!isInBlocks && frame.byteCount < leastByteCount(frame)) {
    return failure(CaptureErrorCode::damagedFrame,
                   fmt::format("a picture is cut short: {} bytes of {}", frame.byteCount, leastByteCount(frame)));
  }
  for (std::size_t i = 1; !isInBlocks && i < shape.planeCount; ++i) {
    const RawFrame::Plane& before = planes[i - 1];
    planes[i].bytes = before.bytes + before.bytesPerRow * shape.rows(i - 1, height);
    planes[i].bytesPerRow = shape.bytesPerRow(i, frame.bytesPerRow, static_cast<std::size_t>(frame.width));
  }
  for (std::size_t i = 0; isInBlocks && i < shape.planeCount; ++i) {
    const std::size_t row = shape.rowBytes(i, static_cast<std::size_t>(frame.width));
    planes[i].bytesPerRow = std::max(planes[i].bytesPerRow, row);
    const std::size_t least = planes[i].bytesPerRow * (shape.rows(i, height) - 1) + row;
    if (planes[i].bytes && planes[i].byteCount >= least) continue;
    return failure(CaptureErrorCode::damagedFrame,
                   fmt::format("plane {} of a picture is cut short: {} bytes of {}", i, planes[i].byteCount, least));
  }
  const auto isOdd = [](const RawFrame::Plane& plane) {
    return (reinterpret_cast<std::uintptr_t>(plane.bytes) | plane.bytesPerRow) % 2 != 0;
  };
  if (isOfWords(frame.layout) && std::any_of(planes.begin(), planes.begin() + shape.planeCount, isOdd)) {
    return failure(CaptureErrorCode::damagedFrame, "a picture of 16-bit samples begins its rows at odd addresses");
  }
  return planes;
}

Expected<void> FrameConverter::convert(const RawFrame& frame, PixelBuffer& picture) {
  picture.lockBaseAddress(PixelBufferLock::readWrite);
  auto result = convert(frame, picture.baseAddress(), picture.bytesPerRow());
  picture.unlockBaseAddress(PixelBufferLock::readWrite);
  return result;
}

Expected<void> FrameConverter::convert(const RawFrame& frame, std::uint8_t* target, std::size_t bytesPerRow) {
  const auto planes = planesOf(frame);
  if (!planes) return tl::unexpected(planes.error());
  const auto stride = static_cast<int>(bytesPerRow);
  if (frame.layout == FrameLayout::mjpeg) return decodeJpeg(frame, target, bytesPerRow);
  if (frame.layout == FrameLayout::h264) return decodeH264(frame, target, stride);
  const bool isBottomUp = frame.isBottomUp;
  convertPlanes(frame, *planes, isBottomUp ? target + static_cast<std::ptrdiff_t>(frame.height - 1) * stride : target,
                isBottomUp ? -stride : stride);
  const bool isLimited = isOfColors(frame) && frame.range == FrameRange::limited;
  if (isLimited) widenRange(target, stride, frame.width, frame.height);
  return {};
}

FrameConverter::Planes FrameConverter::planar(int width, int height, bool isChromaHalfWide) {
  const auto row = static_cast<std::size_t>(width);
  const std::size_t chromaRow = isChromaHalfWide ? FrameShape::half(row) : row;
  const std::size_t luma = row * static_cast<std::size_t>(height);
  const std::size_t chroma = chromaRow * static_cast<std::size_t>(height);
  memory_.resize(luma + 2 * chroma);
  const std::uint8_t* first = memory_.data();
  return {{{first, luma, row}, {first + luma, chroma, chromaRow}, {first + luma + chroma, chroma, chromaRow}}};
}

FrameConverter::Planes FrameConverter::narrowPlanes(const RawFrame& frame, const Planes& planes, int above) {
  const auto shape = FrameShape::of(frame);
  const auto rowOf = [&](std::size_t plane) {
    return shape.rowBytes(plane, static_cast<std::size_t>(frame.width)) / 2;
  };
  const auto rowsOf = [&](std::size_t plane) { return shape.rows(plane, static_cast<std::size_t>(frame.height)); };
  std::size_t count = 0;
  for (std::size_t i = 0; i < shape.planeCount; ++i) count += rowOf(i) * rowsOf(i);
  memory_.resize(count);
  Planes made;
  std::uint8_t* target = memory_.data();
  for (std::size_t i = 0; i < shape.planeCount; ++i) {
    made.at(i) = {target, rowOf(i) * rowsOf(i), rowOf(i)};
    for (std::size_t y = 0; y < rowsOf(i); ++y, target += rowOf(i)) {
      narrow(planes.at(i).bytes + y * planes.at(i).bytesPerRow, rowOf(i), above, target);
    }
  }
  return made;
}

void FrameConverter::convertPlanes(const RawFrame& frame, const Planes& planes, std::uint8_t* target,
                                   int targetStride) {
  const int width = frame.width;
  const int height = frame.height;
  const FrameLayout layout = frame.layout;
  const auto* constants = constantsOf(frame);
  const auto bytes = [](const RawFrame::Plane& plane) { return plane.bytes; };
  const auto stride = [](const RawFrame::Plane& plane) { return static_cast<int>(plane.bytesPerRow); };
  const RawFrame::Plane& first = planes[0];
  const RawFrame::Plane& second = planes[1];
  const RawFrame::Plane& third = planes[2];
  const auto fromPlanar = [&](auto read, const Planes& from) {
    read(bytes(from[0]), stride(from[0]), bytes(from[1]), stride(from[1]), bytes(from[2]), stride(from[2]), target,
         targetStride, constants, width, height);
  };
  const auto fromPixels = [&](auto read) { read(bytes(first), stride(first), target, targetStride, width, height); };
  const auto writable = [&](const RawFrame::Plane& plane) { return memory_.data() + (plane.bytes - memory_.data()); };
  const auto fromPairs = [&](auto split, bool isCrFirst) {
    Planes parts = planar(width, height);
    const auto& cb = parts.at(isCrFirst ? 2 : 1);
    const auto& cr = parts.at(isCrFirst ? 1 : 2);
    split(bytes(first), stride(first), writable(parts[0]), stride(parts[0]), writable(cb), stride(cb), writable(cr),
          stride(cr), width, height);
    fromPlanar(libyuv::I422ToARGBMatrix, parts);
  };
  const auto fromTwoPlanes = [&](auto read, bool isChromaHalfWide, bool isCrFirst) {
    Planes parts = planar(width, height, isChromaHalfWide);
    const auto& cb = parts.at(isCrFirst ? 2 : 1);
    const auto& cr = parts.at(isCrFirst ? 1 : 2);
    libyuv::SplitUVPlane(bytes(second), stride(second), writable(cb), stride(cb), writable(cr), stride(cr), stride(cb),
                         height);
    parts[0] = first;
    fromPlanar(read, parts);
  };
  const auto narrowed = [&](FrameLayout as, int above) {
    RawFrame narrow = frame;
    narrow.layout = as;
    return convertPlanes(narrow, narrowPlanes(frame, planes, above), target, targetStride);
  };
  switch (layout) {
    case FrameLayout::bgra: fromPixels(libyuv::ARGBCopy); break;
    case FrameLayout::rgba: fromPixels(libyuv::ABGRToARGB); break;
    case FrameLayout::argb: fromPixels(libyuv::BGRAToARGB); break;
    case FrameLayout::abgr: fromPixels(libyuv::RGBAToARGB); break;
    case FrameLayout::bgr24: return fromPixels(libyuv::RGB24ToARGB);
    case FrameLayout::rgb24: return fromPixels(libyuv::RAWToARGB);
    case FrameLayout::packed: {
      const bool isYCbCr = frame.packed.isYCbCr;
      const Planes parts = isYCbCr ? planar(width, height, false) : Planes{};
      for (std::ptrdiff_t y = 0; y < height; ++y) {
        const std::uint8_t* row = first.bytes + y * stride(first);
        std::uint8_t* const pixels = target + y * targetStride;
        const std::array ofColors = {pixels + 2, pixels + 1, pixels};
        const auto ofPlane = [&](const RawFrame::Plane& plane) { return writable(plane) + y * width; };
        unpackPixels(frame.packed, row, width,
                     isYCbCr ? std::array{ofPlane(parts[0]), ofPlane(parts[1]), ofPlane(parts[2])} : ofColors,
                     isYCbCr ? 1 : 4);
      }
      if (isYCbCr) return fromPlanar(libyuv::I444ToARGBMatrix, parts);
      break;
    }
    case FrameLayout::yuyv:
    case FrameLayout::yvyu: return fromPairs(libyuv::YUY2ToI422, layout == FrameLayout::yvyu);
    case FrameLayout::uyvy:
    case FrameLayout::vyuy: return fromPairs(libyuv::UYVYToI422, layout == FrameLayout::vyuy);
    case FrameLayout::nv16:
    case FrameLayout::nv61: return fromTwoPlanes(libyuv::I422ToARGBMatrix, true, layout == FrameLayout::nv61);
    case FrameLayout::nv24:
    case FrameLayout::nv42: return fromTwoPlanes(libyuv::I444ToARGBMatrix, false, layout == FrameLayout::nv42);
    case FrameLayout::nv12:
    case FrameLayout::nv21: {
      const auto read = layout == FrameLayout::nv12 ? libyuv::NV12ToARGBMatrix : libyuv::NV21ToARGBMatrix;
      read(bytes(first), stride(first), bytes(second), stride(second), target, targetStride, constants, width, height);
      return;
    }
    case FrameLayout::i420: return fromPlanar(libyuv::I420ToARGBMatrix, planes);
    case FrameLayout::yv12: return fromPlanar(libyuv::I420ToARGBMatrix, {first, third, second});
    case FrameLayout::i422: return fromPlanar(libyuv::I422ToARGBMatrix, planes);
    case FrameLayout::yv16: return fromPlanar(libyuv::I422ToARGBMatrix, {first, third, second});
    case FrameLayout::i444: return fromPlanar(libyuv::I444ToARGBMatrix, planes);
    case FrameLayout::yv24: return fromPlanar(libyuv::I444ToARGBMatrix, {first, third, second});
    case FrameLayout::i010: return narrowed(FrameLayout::i420, 6);
    case FrameLayout::i210: return narrowed(FrameLayout::i422, 6);
    case FrameLayout::i410: return narrowed(FrameLayout::i444, 6);
    case FrameLayout::p010: return narrowed(FrameLayout::nv12, 0);
    case FrameLayout::gbr:
      libyuv::MergeARGBPlane(bytes(third), stride(third), bytes(first), stride(first), bytes(second), stride(second),
                             nullptr, 0, target, targetStride, width, height);
      return;
    case FrameLayout::gray8: return fromPixels(libyuv::J400ToARGB);
    case FrameLayout::mjpeg:
    case FrameLayout::h264: return;
  }
  makeOpaque(target, targetStride, width, height);
}

Expected<void> FrameConverter::decodeJpeg(const RawFrame& frame, std::uint8_t* target, std::size_t stride) {
  if (!jpeg_) jpeg_ = tjInitDecompress();
  int width = 0;
  int height = 0;
  int subsampling = 0;
  int colorspace = 0;
  const auto size = static_cast<unsigned long>(frame.byteCount);
  if (!jpeg_ || tjDecompressHeader3(jpeg_, frame.bytes, size, &width, &height, &subsampling, &colorspace) != 0 ||
      width != frame.width || height != frame.height) {
    return failure(CaptureErrorCode::damagedFrame, "a picture is damaged: no JPEG of the camera's size");
  }
  if (tjDecompress2(jpeg_, frame.bytes, size, target, width, static_cast<int>(stride), height, TJPF_BGRA, 0) == 0) {
    return {};
  }
  // Many cameras leave stray bytes, which are warnings; without its end a picture is gray at the bottom.
  if (tjGetErrorCode(jpeg_) != TJERR_WARNING || !hasEnd(frame)) {
    return failure(CaptureErrorCode::damagedFrame, fmt::format("a picture is damaged: {}", tjGetErrorStr2(jpeg_)));
  }
  return {};
}

Expected<void> FrameConverter::decodeH264(const RawFrame& frame, std::uint8_t* target, int stride) {
  if (!h264_) h264_ = std::make_unique<H264Decoder>();
  const auto decoded = h264_->decode(frame);
  if (!decoded) return tl::unexpected(decoded.error());
  const Planes planes = {{{decoded->bytes, 0, decoded->bytesPerRow}, decoded->chroma[0], decoded->chroma[1]}};
  convertPlanes(*decoded, planes, target, stride);
  return {};
}

}  // namespace tavrel
