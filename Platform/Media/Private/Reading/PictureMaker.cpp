#include "Platform/Media/Private/Reading/PictureMaker.h"

#include <array>
#include <string>
#include <string_view>

#include "Platform/Graphics/PixelBufferAttachments.h"
#include "Platform/Media/MediaError.h"
#include "Platform/Media/Private/ColorTags.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace tavrel {
namespace {

bool isRgb(const AVFrame& picture) {
  const AVPixFmtDescriptor* const layout = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(picture.format));
  return layout && (layout->flags & (AV_PIX_FMT_FLAG_RGB | AV_PIX_FMT_FLAG_PAL)) != 0;
}

}  // namespace

Expected<std::shared_ptr<PixelBuffer>> PictureMaker::make(const AVFrame& decoded) {
  const std::lock_guard lock(mutex_);
  const auto prepared = colors_.prepare(decoded);
  if (!prepared) return tl::unexpected(prepared.error());
  const AVFrame& picture = **prepared;
  const PixelFormat format = formatFor(picture, &picture != &decoded);
  auto buffer = emptyBuffer(picture, format);
  if (!buffer) return buffer;
  (*buffer)->lockBaseAddress(PixelBufferLock::readWrite);
  const auto filled = fill(picture, **buffer);
  (*buffer)->unlockBaseAddress(PixelBufferLock::readWrite);
  if (!filled) return tl::unexpected(filled.error());
  attachDescription(**buffer, picture);
  // Nobody else knows which matrix was chosen for planes that are made of RGB, or is to be chosen for RGB.
  if (format != format_ || (format != PixelFormat::bgra32 && isRgb(picture))) {
    const std::string_view matrix = matrixName(BgraConverter::matrixOf(picture));
    (*buffer)->setAttachment(std::string(kPixelBufferYCbCrMatrixKey), std::string(matrix), true);
  }
  return buffer;
}

PixelFormat PictureMaker::formatFor(const AVFrame& picture, bool isPrepared) const {
  const bool isPlanar = picture.format == AV_PIX_FMT_YUV420P || picture.format == AV_PIX_FMT_YUVJ420P ||
                        picture.format == AV_PIX_FMT_NV12;
  const bool mayStay = allowsPlanes_ && format_ == PixelFormat::bgra32 && !isPrepared;
  if (!mayStay || !isPlanar || matrixName(BgraConverter::matrixOf(picture)).empty()) return format_;
  return BgraConverter::isFullRange(picture) ? PixelFormat::biPlanar420FullRange : PixelFormat::biPlanar420VideoRange;
}

Expected<std::shared_ptr<PixelBuffer>> PictureMaker::emptyBuffer(const AVFrame& picture, PixelFormat format) {
  const auto width = static_cast<std::size_t>(picture.width);
  const auto height = static_cast<std::size_t>(picture.height);
  if (!pool_ || pool_->width() != width || pool_->height() != height || pool_->pixelFormat() != format) {
    auto fitting = PixelBufferPool::create(width, height, format);
    if (!fitting) return tl::unexpected(fitting.error());
    pool_ = std::move(*fitting);
  }
  return pool_->createPixelBuffer();
}

Expected<void> PictureMaker::fill(const AVFrame& picture, PixelBuffer& buffer) {
  if (buffer.pixelFormat() == PixelFormat::bgra32)
    return bgra_.convert(picture, buffer.baseAddress(), buffer.bytesPerRow());
  return fillBiPlanar(picture, buffer);
}

Expected<void> PictureMaker::fillBiPlanar(const AVFrame& picture, PixelBuffer& buffer) {
  // Fields must not mix where lines of chroma are reduced.
  const int fields = picture.interlaced_frame && picture.height % 4 == 0 ? 2 : 1;
  const int lines = picture.height / fields;
  const AVPixelFormat made =
      buffer.pixelFormat() == PixelFormat::biPlanar420VideoRange10 ? AV_PIX_FMT_P010 : AV_PIX_FMT_NV12;
  scaler_.reset(sws_getCachedContext(scaler_.release(), picture.width, lines,
                                     static_cast<AVPixelFormat>(picture.format), picture.width, lines, made,
                                     SWS_BICUBIC | SWS_ACCURATE_RND, nullptr, nullptr, nullptr));
  if (!scaler_)
    return failure(MediaErrorCode::unsupportedFormat, "pictures of this layout cannot be converted to 4:2:0");
  constexpr int kUnity = 1 << 16;
  const int* const coefficients = sws_getCoefficients(BgraConverter::matrixOf(picture));
  sws_setColorspaceDetails(scaler_.get(), coefficients, BgraConverter::isFullRange(picture) ? 1 : 0, coefficients,
                           buffer.pixelFormat() == PixelFormat::biPlanar420FullRange ? 1 : 0, 0, kUnity, kUnity);
  for (int field = 0; field < fields; ++field) {
    std::array<const std::uint8_t*, 4> from{};
    std::array<int, 4> fromStrides{};
    std::array<std::uint8_t*, 4> to{};
    std::array<int, 4> toStrides{};
    for (std::size_t plane = 0; plane < from.size() && picture.data[plane]; ++plane) {
      from[plane] = picture.data[plane] + std::ptrdiff_t{field} * picture.linesize[plane];
      fromStrides[plane] = picture.linesize[plane] * fields;
    }
    for (std::size_t plane = 0; plane < 2; ++plane) {
      const auto stride = static_cast<int>(buffer.bytesPerRowOfPlane(plane));
      to[plane] = buffer.baseAddressOfPlane(plane) + std::ptrdiff_t{field} * stride;
      toStrides[plane] = stride * fields;
    }
    if (sws_scale(scaler_.get(), from.data(), fromStrides.data(), 0, lines, to.data(), toStrides.data()) < 0)
      return failure(MediaErrorCode::conversionFailed, "a picture could not be converted to 4:2:0");
  }
  return {};
}

}  // namespace tavrel
