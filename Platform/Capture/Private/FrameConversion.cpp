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
#include "Platform/Capture/Private/H264Decoder.h"
#include "Platform/Imaging/PixelRange.h"

namespace tavrel {
namespace {

const libyuv::YuvConstants* constantsOf(const RawFrame& frame) {
  const auto either = [&](const auto& fullRange, const auto* limitedRange, const auto& nearlyIt) {
    return frame.isFullRange ? &fullRange : limitedRange ? limitedRange : &nearlyIt;
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

std::size_t half(std::size_t value) { return (value + 1) / 2; }

/// How many planes a layout has, and how their rows are. Widths and heights count from the first plane's.
struct Shape {
  std::size_t planeCount = 1;
  std::size_t pixelBytes = 1;       ///< of the first plane; of two pixels where `isInPairs`
  bool isInPairs = false;           ///< two pixels share their chroma, in one plane
  bool isChromaInterleaved = true;  ///< in one plane, else in two of half the stride
  bool isChromaHalfHigh = true;

  std::size_t rowBytes(std::size_t plane, std::size_t width) const {
    if (plane == 0) return (isInPairs ? half(width) : width) * pixelBytes;
    return half(width) * (isChromaInterleaved ? 2 : 1) * pixelBytes;
  }
  std::size_t rows(std::size_t plane, std::size_t height) const {
    return plane > 0 && isChromaHalfHigh ? half(height) : height;
  }
  std::size_t bytesPerRow(std::size_t plane, std::size_t first) const {
    return plane > 0 && !isChromaInterleaved ? half(first) : first;
  }
};

Shape shapeOf(FrameLayout layout) {
  switch (layout) {
    case FrameLayout::bgra:
    case FrameLayout::rgba: return {.pixelBytes = 4};
    case FrameLayout::bgr24:
    case FrameLayout::rgb24: return {.pixelBytes = 3};
    case FrameLayout::yuyv:
    case FrameLayout::uyvy:
    case FrameLayout::yvyu: return {.pixelBytes = 4, .isInPairs = true};
    case FrameLayout::nv12:
    case FrameLayout::nv21: return {.planeCount = 2};
    case FrameLayout::nv16: return {.planeCount = 2, .isChromaHalfHigh = false};
    case FrameLayout::p010: return {.planeCount = 2, .pixelBytes = 2};
    case FrameLayout::i420:
    case FrameLayout::yv12: return {.planeCount = 3, .isChromaInterleaved = false};
    case FrameLayout::gray8: return {};
    case FrameLayout::mjpeg:
    case FrameLayout::h264: break;
  }
  return {.planeCount = 0};
}

}  // namespace

FrameConverter::FrameConverter() = default;

FrameConverter::~FrameConverter() {
  if (jpeg_) tjDestroy(jpeg_);
}

void FrameConverter::forget() { h264_ = nullptr; }

std::size_t FrameConverter::tightRow(FrameLayout layout, int width) {
  const Shape shape = shapeOf(layout);
  return shape.planeCount > 0 ? shape.rowBytes(0, static_cast<std::size_t>(width)) : 0;
}

void FrameConverter::findPaddedRows(RawFrame& frame) {
  const Shape shape = shapeOf(frame.layout);
  const auto width = static_cast<std::size_t>(frame.width);
  const auto height = static_cast<std::size_t>(frame.height);
  if (shape.planeCount == 0 || frame.chroma[0].bytes) return;
  Planes planes;
  std::size_t end = 0;
  for (std::size_t i = 0; i < shape.planeCount; ++i) {
    const std::size_t row = (shape.rowBytes(i, width) + 3) / 4 * 4;
    const bool isPaired = i == 0 && shape.planeCount > 1 && shape.isChromaHalfHigh;
    const std::size_t rows = isPaired ? 2 * half(height) : shape.rows(i, height);
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
  const Shape shape = shapeOf(frame.layout);
  if (shape.planeCount == 0) return 1;
  const auto width = static_cast<std::size_t>(frame.width);
  const auto height = static_cast<std::size_t>(frame.height);
  const std::size_t last = shape.planeCount - 1;
  std::size_t count = 0;
  for (std::size_t i = 0; i < last; ++i) count += shape.bytesPerRow(i, frame.bytesPerRow) * shape.rows(i, height);
  const std::size_t stride = shape.bytesPerRow(last, frame.bytesPerRow);
  return count + stride * (shape.rows(last, height) - 1) + shape.rowBytes(last, width);
}

Expected<void> FrameConverter::convert(const RawFrame& frame, PixelBuffer& picture) {
  const Shape shape = shapeOf(frame.layout);
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
    planes[i].bytesPerRow = shape.bytesPerRow(i, frame.bytesPerRow);
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
  if (frame.layout == FrameLayout::p010 && (isOdd(planes[0]) || isOdd(planes[1]))) {
    return failure(CaptureErrorCode::damagedFrame, "a picture of 16-bit samples begins its rows at odd addresses");
  }
  picture.lockBaseAddress(PixelBufferLock::readWrite);
  Expected<void> result;
  if (frame.layout == FrameLayout::mjpeg) {
    result = decodeJpeg(frame, picture.baseAddress(), picture.bytesPerRow());
  } else if (frame.layout == FrameLayout::h264) {
    result = decodeH264(frame, picture.baseAddress(), static_cast<int>(picture.bytesPerRow()));
  } else {
    convertPlanes(frame, planes, picture.baseAddress(), static_cast<int>(picture.bytesPerRow()));
  }
  picture.unlockBaseAddress(PixelBufferLock::readWrite);
  return result;
}

FrameConverter::Planes FrameConverter::planar(int width, int height) {
  const auto row = static_cast<std::size_t>(width);
  const std::size_t luma = row * static_cast<std::size_t>(height);
  const std::size_t chroma = half(row) * static_cast<std::size_t>(height);
  memory_.resize(luma + 2 * chroma);
  const std::uint8_t* first = memory_.data();
  return {{{first, luma, row}, {first + luma, chroma, half(row)}, {first + luma + chroma, chroma, half(row)}}};
}

void FrameConverter::convertPlanes(const RawFrame& frame, const Planes& planes, std::uint8_t* target,
                                   int targetStride) {
  const int width = frame.width;
  const int height = frame.height;
  const auto* constants = constantsOf(frame);
  const auto bytes = [](const RawFrame::Plane& plane) { return plane.bytes; };
  const auto stride = [](const RawFrame::Plane& plane) { return static_cast<int>(plane.bytesPerRow); };
  const auto& [first, second, third] = planes;
  const auto fromPlanar = [&](auto read, const Planes& from) {
    read(bytes(from[0]), stride(from[0]), bytes(from[1]), stride(from[1]), bytes(from[2]), stride(from[2]), target,
         targetStride, constants, width, height);
  };
  const auto writable = [&](const RawFrame::Plane& plane) { return memory_.data() + (plane.bytes - memory_.data()); };
  switch (frame.layout) {
    case FrameLayout::bgra:
    case FrameLayout::rgba: {
      const auto copy = frame.layout == FrameLayout::bgra ? libyuv::ARGBCopy : libyuv::ABGRToARGB;
      copy(bytes(first), stride(first), target, targetStride, width, height);
      return makeOpaque(target, targetStride, width, height);
    }
    case FrameLayout::bgr24:
    case FrameLayout::rgb24: {
      const auto widen = frame.layout == FrameLayout::bgr24 ? libyuv::RGB24ToARGB : libyuv::RAWToARGB;
      widen(bytes(first), stride(first), target, targetStride, width, height);
      return;
    }
    case FrameLayout::yuyv:
    case FrameLayout::uyvy:
    case FrameLayout::yvyu: {
      Planes parts = planar(width, height);
      if (frame.layout == FrameLayout::yvyu) std::swap(parts[1], parts[2]);
      const auto split = frame.layout == FrameLayout::uyvy ? libyuv::UYVYToI422 : libyuv::YUY2ToI422;
      split(bytes(first), stride(first), writable(parts[0]), stride(parts[0]), writable(parts[1]), stride(parts[1]),
            writable(parts[2]), stride(parts[2]), width, height);
      if (frame.layout == FrameLayout::yvyu) std::swap(parts[1], parts[2]);
      return fromPlanar(libyuv::I422ToARGBMatrix, parts);
    }
    case FrameLayout::nv16: {
      Planes parts = planar(width, height);
      libyuv::SplitUVPlane(bytes(second), stride(second), writable(parts[1]), stride(parts[1]), writable(parts[2]),
                           stride(parts[2]), (width + 1) / 2, height);
      parts[0] = first;
      return fromPlanar(libyuv::I422ToARGBMatrix, parts);
    }
    case FrameLayout::nv12:
    case FrameLayout::nv21: {
      const auto read = frame.layout == FrameLayout::nv12 ? libyuv::NV12ToARGBMatrix : libyuv::NV21ToARGBMatrix;
      read(bytes(first), stride(first), bytes(second), stride(second), target, targetStride, constants, width, height);
      return;
    }
    case FrameLayout::i420: return fromPlanar(libyuv::I420ToARGBMatrix, planes);
    case FrameLayout::yv12: return fromPlanar(libyuv::I420ToARGBMatrix, {first, third, second});
    case FrameLayout::p010: {
      const auto words = [](const RawFrame::Plane& plane) {
        return static_cast<const std::uint16_t*>(static_cast<const void*>(plane.bytes));
      };
      libyuv::P010ToARGBMatrix(words(first), stride(first) / 2, words(second), stride(second) / 2, target, targetStride,
                               constants, width, height);
      return;
    }
    case FrameLayout::gray8:
      libyuv::I400ToARGBMatrix(bytes(first), stride(first), target, targetStride, constants, width, height);
      return;
    case FrameLayout::mjpeg:
    case FrameLayout::h264: return;
  }
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
