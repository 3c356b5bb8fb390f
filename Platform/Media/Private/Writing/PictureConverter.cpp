#include "Platform/Media/Private/Writing/PictureConverter.h"
#include "Platform/Media/MediaError.h"

#include <fmt/format.h>
#include <libyuv/convert.h>
#include <libyuv/convert_from_argb.h>

#include <algorithm>
#include <array>
#include <cstring>
#include <utility>

extern "C" {
#include <libswscale/swscale.h>
}

namespace tavrel {
namespace {

/// Repeats the last column and row of a plane that was filled to `width` × `height`.
void repeatEdge(std::uint8_t* plane, int stride, int width, int height, int fullWidth, int fullHeight) {
  if (fullWidth > width) {
    for (int row = 0; row < height; ++row) {
      std::uint8_t* const line = plane + static_cast<std::ptrdiff_t>(row) * stride;
      std::memset(line + width, line[width - 1], static_cast<std::size_t>(fullWidth - width));
    }
  }
  for (int row = height; row < fullHeight; ++row) {
    std::memcpy(plane + static_cast<std::ptrdiff_t>(row) * stride,
                plane + static_cast<std::ptrdiff_t>(height - 1) * stride, static_cast<std::size_t>(fullWidth));
  }
}

bool fits(std::size_t side, int full) {
  return side == static_cast<std::size_t>(full) || side + 1 == static_cast<std::size_t>(full);
}

/// Ten bits at the top of 16, interleaved, to ten at the bottom, in planes. The last row and column are repeated.
void unpack(const PixelBufferSnapshot& picture, AVFrame& frame) {
  constexpr int kUnusedBits = 6;
  for (std::size_t plane = 0; plane < 3; ++plane) {
    const PixelPlane& layout = picture.layout().planes[plane == 0 ? 0 : 1];
    const std::size_t step = plane == 0 ? 1 : 2;
    const auto part = static_cast<int>(step);
    const auto rows = static_cast<std::size_t>((frame.height + part - 1) / part);
    const auto columns = static_cast<std::size_t>((frame.width + part - 1) / part);
    for (std::size_t row = 0; row < rows; ++row) {
      const auto* const from =
          reinterpret_cast<const std::uint16_t*>(picture.bytesOfPlane(plane == 0 ? 0 : 1) +
                                                 std::min(row, layout.height - 1) * layout.bytesPerRow) +
          (plane == 2 ? 1 : 0);
      auto* const to = reinterpret_cast<std::uint16_t*>(frame.data[plane] +
                                                        static_cast<std::ptrdiff_t>(row) * frame.linesize[plane]);
      for (std::size_t column = 0; column < columns; ++column)
        to[column] = static_cast<std::uint16_t>(from[std::min(column, layout.width - 1) * step] >> kUnusedBits);
    }
  }
}

void fillBlack(AVFrame& frame) {
  if (frame.format == AV_PIX_FMT_YUV420P10) {
    for (int plane = 0; plane < 3; ++plane) {
      auto* const samples = reinterpret_cast<std::uint16_t*>(frame.data[plane]);
      const std::ptrdiff_t rows = plane == 0 ? frame.height : (frame.height + 1) / 2;
      std::fill(samples, samples + rows * frame.linesize[plane] / 2, static_cast<std::uint16_t>(plane == 0 ? 64 : 512));
    }
    return;
  }
  constexpr int kBlack = 16;
  constexpr int kGray = 128;
  const bool isInterleaved = frame.format == AV_PIX_FMT_NV12;
  for (int plane = 0; plane < (isInterleaved ? 2 : 3); ++plane) {
    const auto rows = static_cast<std::size_t>(plane == 0 ? frame.height : (frame.height + 1) / 2);
    std::memset(frame.data[plane], plane == 0 ? kBlack : kGray, rows * static_cast<std::size_t>(frame.linesize[plane]));
  }
}

AVPixelFormat ffmpegFormat(PixelFormat format) {
  if (format == PixelFormat::biPlanar420VideoRange10) return AV_PIX_FMT_P010;
  return format == PixelFormat::bgra32 ? AV_PIX_FMT_BGRA : AV_PIX_FMT_NV12;
}

}  // namespace

PictureConverter::~PictureConverter() { sws_freeContext(scaler_); }

Expected<void> PictureConverter::convert(const PixelBufferSnapshot& picture, AVFrame& frame) {
  const bool fitsFrame = fits(picture.width(), frame.width) && fits(picture.height(), frame.height);
  const bool isBGRA = picture.format() == PixelFormat::bgra32;
  if (!PictureParts::of(picture, frame, mode_).isWhole(picture, frame)) return scale(picture, frame);
  const bool isDeep = picture.format() == PixelFormat::biPlanar420VideoRange10;
  if (isDeep != (frame.format == AV_PIX_FMT_YUV420P10)) return scale(picture, frame);
  if (isDeep && fitsFrame) {
    unpack(picture, frame);
    return {};
  }
  const bool hasLibyuvMatrix = frame.colorspace == AVCOL_SPC_SMPTE170M;
  if (!fitsFrame || picture.format() == PixelFormat::biPlanar420FullRange || (isBGRA && !hasLibyuvMatrix)) {
    return scale(picture, frame);
  }
  const int width = static_cast<int>(picture.width());
  const int height = static_cast<int>(picture.height());
  const int stride = static_cast<int>(picture.bytesPerRow());
  if (frame.format == AV_PIX_FMT_NV12) return convertToNV12(picture, frame);
  const int result =
      isBGRA ? libyuv::ARGBToI420(picture.bytes(), stride, frame.data[0], frame.linesize[0], frame.data[1],
                                  frame.linesize[1], frame.data[2], frame.linesize[2], width, height)
             : libyuv::NV12ToI420(picture.bytes(), stride, picture.bytesOfPlane(1),
                                  static_cast<int>(picture.bytesPerRowOfPlane(1)), frame.data[0], frame.linesize[0],
                                  frame.data[1], frame.linesize[1], frame.data[2], frame.linesize[2], width, height);
  if (result != 0) return failure(MediaErrorCode::conversionFailed, "a picture cannot be converted for the encoder");
  repeatEdge(frame.data[0], frame.linesize[0], width, height, frame.width, frame.height);
  return {};
}

Expected<void> PictureConverter::convertToNV12(const PixelBufferSnapshot& picture, AVFrame& frame) {
  const int width = static_cast<int>(picture.width());
  const int height = static_cast<int>(picture.height());
  const int stride = static_cast<int>(picture.bytesPerRow());
  const int result = picture.format() == PixelFormat::bgra32
                         ? libyuv::ARGBToNV12(picture.bytes(), stride, frame.data[0], frame.linesize[0], frame.data[1],
                                              frame.linesize[1], width, height)
                         : libyuv::NV12Copy(picture.bytes(), stride, picture.bytesOfPlane(1),
                                            static_cast<int>(picture.bytesPerRowOfPlane(1)), frame.data[0],
                                            frame.linesize[0], frame.data[1], frame.linesize[1], width, height);
  if (result != 0) return failure(MediaErrorCode::conversionFailed, "a picture cannot be converted for the encoder");
  repeatEdge(frame.data[0], frame.linesize[0], width, height, frame.width, frame.height);
  return {};
}

Expected<void> PictureConverter::scale(const PixelBufferSnapshot& picture, AVFrame& frame) {
  const PictureParts parts = PictureParts::of(picture, frame, mode_);
  if (parts.hasBars(frame)) fillBlack(frame);
  const auto [width, height] = std::pair(parts.source.width, parts.source.height);
  scaler_ = sws_getCachedContext(scaler_, width, height, ffmpegFormat(picture.format()), parts.target.width,
                                 parts.target.height, static_cast<AVPixelFormat>(frame.format),
                                 SWS_BICUBIC | SWS_ACCURATE_RND, nullptr, nullptr, nullptr);
  if (!scaler_) {
    return failure(MediaErrorCode::conversionFailed, fmt::format("a picture of {}x{} cannot be scaled to {}x{}", width,
                                                                 height, parts.target.width, parts.target.height));
  }
  const bool isBGRA = picture.format() == PixelFormat::bgra32;
  const int* const coefficients = sws_getCoefficients(frame.colorspace);
  const bool isFullRange = isBGRA || picture.format() == PixelFormat::biPlanar420FullRange;
  sws_setColorspaceDetails(scaler_, coefficients, isFullRange ? 1 : 0, coefficients, 0, 0, 1 << 16, 1 << 16);
  const std::array<int, 4> strides{static_cast<int>(picture.bytesPerRow()),
                                   isBGRA ? 0 : static_cast<int>(picture.bytesPerRowOfPlane(1))};
  const auto& from = parts.source;
  const auto sampleBytes = static_cast<std::ptrdiff_t>(picture.layout().planes[0].bytesPerSample);
  const std::array<const std::uint8_t*, 4> planes{
      picture.bytes() + std::ptrdiff_t{from.y} * strides[0] + from.x * sampleBytes,
      isBGRA ? nullptr : picture.bytesOfPlane(1) + std::ptrdiff_t{from.y} / 2 * strides[1] + from.x * sampleBytes};
  const bool isInterleaved = frame.format == AV_PIX_FMT_NV12;
  std::array<std::uint8_t*, 4> targets{};
  for (std::size_t i = 0; i < (isInterleaved ? 2 : 3); ++i) {
    const int row = i == 0 ? parts.target.y : parts.target.y / 2;
    const int bytes = frame.format == AV_PIX_FMT_YUV420P10 ? 2 : 1;
    const int column = (i == 0 || isInterleaved ? parts.target.x : parts.target.x / 2) * bytes;
    targets[i] = frame.data[i] + std::ptrdiff_t{row} * frame.linesize[i] + column;
  }
  sws_scale(scaler_, planes.data(), strides.data(), 0, height, targets.data(), frame.linesize);
  return {};
}

}  // namespace tavrel
