#include <fmt/format.h>
#include <libyuv/convert.h>
#include <libyuv/convert_argb.h>
#include <libyuv/planar_functions.h>
#include <turbojpeg.h>

#include <algorithm>
#include <array>

#include "Platform/Capture/CaptureError.h"
#include "Platform/Capture/Private/FrameConversion.h"

namespace tavrel {
namespace {

const libyuv::YuvConstants* constantsOf(const RawFrame& frame) {
  switch (frame.matrix) {
    case FrameMatrix::bt709: return frame.isFullRange ? &libyuv::kYuvF709Constants : &libyuv::kYuvH709Constants;
    case FrameMatrix::bt2020: return frame.isFullRange ? &libyuv::kYuvV2020Constants : &libyuv::kYuv2020Constants;
    case FrameMatrix::bt601: break;
  }
  return frame.isFullRange ? &libyuv::kYuvJPEGConstants : &libyuv::kYuvI601Constants;
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

}  // namespace

FrameConverter::FrameConverter() = default;

FrameConverter::~FrameConverter() {
  if (jpeg_) tjDestroy(jpeg_);
}

std::size_t FrameConverter::tightRow(FrameLayout layout, int width) {
  const auto pixels = static_cast<std::size_t>(width);
  switch (layout) {
    case FrameLayout::bgra:
    case FrameLayout::rgba: return pixels * 4;
    case FrameLayout::yuyv:
    case FrameLayout::uyvy: return half(pixels) * 4;
    case FrameLayout::nv12:
    case FrameLayout::i420: return pixels;
    case FrameLayout::mjpeg: break;
  }
  return 0;
}

std::size_t FrameConverter::leastByteCount(const RawFrame& frame) {
  const auto width = static_cast<std::size_t>(frame.width);
  const auto height = static_cast<std::size_t>(frame.height);
  switch (frame.layout) {
    case FrameLayout::bgra:
    case FrameLayout::rgba:
    case FrameLayout::yuyv:
    case FrameLayout::uyvy: return frame.bytesPerRow * (height - 1) + tightRow(frame.layout, frame.width);
    case FrameLayout::nv12: return frame.bytesPerRow * (height + half(height) - 1) + half(width) * 2;
    case FrameLayout::i420:
      return frame.bytesPerRow * height + half(frame.bytesPerRow) * (half(height) * 2 - 1) + half(width);
    case FrameLayout::mjpeg: break;
  }
  return 1;
}

Expected<void> FrameConverter::convert(const RawFrame& frame, PixelBuffer& picture) {
  if (frame.byteCount < leastByteCount(frame)) {
    return failure(CaptureErrorCode::damagedFrame,
                   fmt::format("a picture is cut short: {} bytes of {}", frame.byteCount, leastByteCount(frame)));
  }
  picture.lockBaseAddress(PixelBufferLock::readWrite);
  std::uint8_t* target = picture.baseAddress();
  const int targetStride = static_cast<int>(picture.bytesPerRow());
  const int stride = static_cast<int>(frame.bytesPerRow);
  const int width = frame.width;
  const int height = frame.height;
  const auto* constants = constantsOf(frame);
  Expected<void> result;
  switch (frame.layout) {
    case FrameLayout::bgra:
      libyuv::ARGBCopy(frame.bytes, stride, target, targetStride, width, height);
      makeOpaque(target, targetStride, width, height);
      break;
    case FrameLayout::rgba:
      libyuv::ABGRToARGB(frame.bytes, stride, target, targetStride, width, height);
      makeOpaque(target, targetStride, width, height);
      break;
    case FrameLayout::yuyv:
    case FrameLayout::uyvy: {
      const std::size_t luma = static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
      const std::size_t chroma = half(static_cast<std::size_t>(width)) * static_cast<std::size_t>(height);
      planes_.resize(luma + 2 * chroma);
      std::uint8_t* y = planes_.data();
      std::uint8_t* u = y + luma;
      std::uint8_t* v = u + chroma;
      const int chromaStride = (width + 1) / 2;
      const auto split = frame.layout == FrameLayout::yuyv ? libyuv::YUY2ToI422 : libyuv::UYVYToI422;
      split(frame.bytes, stride, y, width, u, chromaStride, v, chromaStride, width, height);
      libyuv::I422ToARGBMatrix(y, width, u, chromaStride, v, chromaStride, target, targetStride, constants, width,
                               height);
      break;
    }
    case FrameLayout::nv12:
      libyuv::NV12ToARGBMatrix(frame.bytes, stride, frame.bytes + frame.bytesPerRow * static_cast<std::size_t>(height),
                               stride, target, targetStride, constants, width, height);
      break;
    case FrameLayout::i420: {
      const std::size_t chromaRow = half(frame.bytesPerRow);
      const std::uint8_t* u = frame.bytes + frame.bytesPerRow * static_cast<std::size_t>(height);
      const std::uint8_t* v = u + chromaRow * half(static_cast<std::size_t>(height));
      libyuv::I420ToARGBMatrix(frame.bytes, stride, u, static_cast<int>(chromaRow), v, static_cast<int>(chromaRow),
                               target, targetStride, constants, width, height);
      break;
    }
    case FrameLayout::mjpeg: result = decodeJpeg(frame, target, picture.bytesPerRow()); break;
  }
  picture.unlockBaseAddress(PixelBufferLock::readWrite);
  return result;
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

}  // namespace tavrel
