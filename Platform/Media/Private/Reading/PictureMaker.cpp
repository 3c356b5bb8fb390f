#include "Platform/Media/Private/Reading/PictureMaker.h"

#include <array>
#include <string>
#include <string_view>

#include "Platform/Graphics/PixelBuffer.h"
#include "Platform/Graphics/PixelBufferAttachments.h"
#include "Platform/Media/MediaError.h"

namespace tavrel {
namespace {

template <typename Value>
struct Tag {
  Value value;
  std::string_view text;
};

constexpr Tag<AVColorPrimaries> kPrimaries[] = {{AVCOL_PRI_BT709, kColorPrimariesITU_R_709_2},
                                                {AVCOL_PRI_SMPTE170M, kColorPrimariesSMPTE_C},
                                                {AVCOL_PRI_SMPTE240M, kColorPrimariesSMPTE_C},
                                                {AVCOL_PRI_BT470BG, kColorPrimariesEBU_3213},
                                                {AVCOL_PRI_BT2020, kColorPrimariesITU_R_2020}};
constexpr Tag<AVColorTransferCharacteristic> kTransfers[] = {{AVCOL_TRC_BT709, kTransferFunctionITU_R_709_2},
                                                             {AVCOL_TRC_SMPTE170M, kTransferFunctionITU_R_709_2},
                                                             {AVCOL_TRC_IEC61966_2_1, kTransferFunctionSRGB},
                                                             {AVCOL_TRC_BT2020_10, kTransferFunctionITU_R_2020},
                                                             {AVCOL_TRC_BT2020_12, kTransferFunctionITU_R_2020}};
constexpr Tag<AVColorSpace> kMatrices[] = {{AVCOL_SPC_BT709, kYCbCrMatrixITU_R_709_2},
                                           {AVCOL_SPC_SMPTE170M, kYCbCrMatrixITU_R_601_4},
                                           {AVCOL_SPC_BT470BG, kYCbCrMatrixITU_R_601_4},
                                           {AVCOL_SPC_BT2020_NCL, kYCbCrMatrixITU_R_2020}};

template <typename Value, std::size_t Count>
void attach(PixelBuffer& buffer, std::string_view key, const Tag<Value> (&tags)[Count], Value value) {
  for (const auto& tag : tags) {
    if (tag.value == value) buffer.setAttachment(std::string(key), std::string(tag.text), true);
  }
}

/// Only what the file itself says: an untagged movie stays untagged.
void attachColors(PixelBuffer& buffer, const AVFrame& picture) {
  attach(buffer, kPixelBufferColorPrimariesKey, kPrimaries, picture.color_primaries);
  attach(buffer, kPixelBufferTransferFunctionKey, kTransfers, picture.color_trc);
  attach(buffer, kPixelBufferYCbCrMatrixKey, kMatrices, picture.colorspace);
}

}  // namespace

Expected<std::shared_ptr<PixelBuffer>> PictureMaker::make(const AVFrame& picture) {
  const std::lock_guard lock(mutex_);
  auto buffer = emptyBuffer(static_cast<std::size_t>(picture.width), static_cast<std::size_t>(picture.height));
  if (!buffer) return buffer;
  (*buffer)->lockBaseAddress(PixelBufferLock::readWrite);
  const auto filled = fill(picture, **buffer);
  (*buffer)->unlockBaseAddress(PixelBufferLock::readWrite);
  if (!filled) return tl::unexpected(filled.error());
  attachColors(**buffer, picture);
  return buffer;
}

Expected<std::shared_ptr<PixelBuffer>> PictureMaker::emptyBuffer(std::size_t width, std::size_t height) {
  if (!pool_ || pool_->width() != width || pool_->height() != height) {
    auto fitting = PixelBufferPool::create(width, height, format_);
    if (!fitting) return tl::unexpected(fitting.error());
    pool_ = std::move(*fitting);
  }
  return pool_->createPixelBuffer();
}

Expected<void> PictureMaker::fill(const AVFrame& picture, PixelBuffer& buffer) {
  if (format_ == PixelFormat::bgra32) return bgra_.convert(picture, buffer.baseAddress(), buffer.bytesPerRow());
  return fillBiPlanar(picture, buffer);
}

Expected<void> PictureMaker::fillBiPlanar(const AVFrame& picture, PixelBuffer& buffer) {
  scaler_.reset(sws_getCachedContext(scaler_.release(), picture.width, picture.height,
                                     static_cast<AVPixelFormat>(picture.format), picture.width, picture.height,
                                     AV_PIX_FMT_NV12, SWS_BILINEAR | SWS_ACCURATE_RND, nullptr, nullptr, nullptr));
  if (!scaler_)
    return failure(MediaErrorCode::unsupportedFormat, "pictures of this layout cannot be converted to 4:2:0");
  constexpr int kUnity = 1 << 16;
  const int* const coefficients = sws_getCoefficients(BgraConverter::matrixOf(picture));
  sws_setColorspaceDetails(scaler_.get(), coefficients, BgraConverter::isFullRange(picture) ? 1 : 0, coefficients,
                           format_ == PixelFormat::biPlanar420FullRange ? 1 : 0, 0, kUnity, kUnity);
  const std::array<std::uint8_t*, 4> planes = {buffer.baseAddressOfPlane(0), buffer.baseAddressOfPlane(1)};
  const std::array<int, 4> strides = {static_cast<int>(buffer.bytesPerRowOfPlane(0)),
                                      static_cast<int>(buffer.bytesPerRowOfPlane(1))};
  if (sws_scale(scaler_.get(), picture.data, picture.linesize, 0, picture.height, planes.data(), strides.data()) < 0) {
    return failure(MediaErrorCode::conversionFailed, "a picture could not be converted to 4:2:0");
  }
  return {};
}

}  // namespace tavrel
