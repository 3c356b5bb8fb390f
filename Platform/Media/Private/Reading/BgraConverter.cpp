#include "Platform/Media/Private/Reading/BgraConverter.h"
#include "Platform/Imaging/PixelRange.h"
#include "Platform/Media/MediaError.h"

#include <libyuv.h>

#include <algorithm>
#include <array>

extern "C" {
#include <libavutil/pixdesc.h>
}

namespace tavrel {
namespace {

constexpr int kFirstLinesOfHighDefinition = 720;
/// 1 in the fixed-point numbers that libswscale takes for contrast and saturation.
constexpr int kUnity = 1 << 16;

/// The constants for one of the three common matrices; nullptr where libyuv has none that are right.
const libyuv::YuvConstants* constantsFor(AVColorSpace matrix, bool fullRange) {
  switch (matrix) {
    case AVCOL_SPC_BT470BG:
    case AVCOL_SPC_SMPTE170M: return fullRange ? &libyuv::kYuvJPEGConstants : limitedRange601();
    case AVCOL_SPC_BT709: return fullRange ? &libyuv::kYuvF709Constants : limitedRange709();
    case AVCOL_SPC_BT2020_NCL:
    case AVCOL_SPC_BT2020_CL: return fullRange ? &libyuv::kYuvV2020Constants : limitedRange2020();
    default: return nullptr;
  }
}

struct Conversion {
  const AVFrame& picture;
  std::uint8_t* destination;
  int bytesPerRow;
  const libyuv::YuvConstants* constants;

  const std::uint8_t* plane(int i) const { return picture.data[i]; }
  int stride(int i) const { return picture.linesize[i]; }
  const std::uint16_t* widePlane(int i) const {
    return static_cast<const std::uint16_t*>(static_cast<const void*>(picture.data[i]));
  }
  int wideStride(int i) const { return picture.linesize[i] / 2; }

  /// Three planes of 8 bits.
  template <typename Function, typename... Last>
  int planar(Function function, Last... last) const {
    return function(plane(0), stride(0), plane(1), stride(1), plane(2), stride(2), destination, bytesPerRow, constants,
                    picture.width, picture.height, last...);
  }
  /// Three planes of 10 bits in words.
  template <typename Function, typename... Last>
  int wide(Function function, Last... last) const {
    return function(widePlane(0), wideStride(0), widePlane(1), wideStride(1), widePlane(2), wideStride(2), destination,
                    bytesPerRow, constants, picture.width, picture.height, last...);
  }
};

constexpr int kNotCommon = 1;

int convertYuv(const Conversion& picture) {
  if (!picture.constants) return kNotCommon;
  switch (picture.picture.format) {
    case AV_PIX_FMT_YUV420P:
    case AV_PIX_FMT_YUVJ420P: return picture.planar(libyuv::I420ToARGBMatrixFilter, libyuv::kFilterBilinear);
    case AV_PIX_FMT_YUV422P:
    case AV_PIX_FMT_YUVJ422P: return picture.planar(libyuv::I422ToARGBMatrixFilter, libyuv::kFilterLinear);
    case AV_PIX_FMT_YUV444P:
    case AV_PIX_FMT_YUVJ444P: return picture.planar(libyuv::I444ToARGBMatrix);
    case AV_PIX_FMT_YUV420P10LE: return picture.wide(libyuv::I010ToARGBMatrixFilter, libyuv::kFilterBilinear);
    case AV_PIX_FMT_YUV422P10LE: return picture.wide(libyuv::I210ToARGBMatrixFilter, libyuv::kFilterLinear);
    case AV_PIX_FMT_YUV444P10LE: return picture.wide(libyuv::I410ToARGBMatrix);
    case AV_PIX_FMT_GRAY8:
      return libyuv::I400ToARGBMatrix(picture.plane(0), picture.stride(0), picture.destination, picture.bytesPerRow,
                                      picture.constants, picture.picture.width, picture.picture.height);
    default: return kNotCommon;
  }
}

int convertRgb(const Conversion& picture) {
  const auto with = [&](auto function) {
    return function(picture.plane(0), picture.stride(0), picture.destination, picture.bytesPerRow,
                    picture.picture.width, picture.picture.height);
  };
  switch (picture.picture.format) {
    case AV_PIX_FMT_BGRA: return with(libyuv::ARGBCopy);
    case AV_PIX_FMT_RGBA: return with(libyuv::ABGRToARGB);
    case AV_PIX_FMT_BGR24: return with(libyuv::RGB24ToARGB);
    case AV_PIX_FMT_RGB24: return with(libyuv::RAWToARGB);
    default: return kNotCommon;
  }
}

/// Gray without a tag is stored full range, as still pictures are.
bool isGray(const AVFrame& picture) {
  const AVPixFmtDescriptor* description = av_pix_fmt_desc_get(static_cast<AVPixelFormat>(picture.format));
  return description && description->nb_components <= 2 && (description->flags & AV_PIX_FMT_FLAG_PAL) == 0;
}

}  // namespace

Expected<void> BgraConverter::convert(const AVFrame& picture, std::uint8_t* destination, std::size_t bytesPerRow) {
  const int stride = static_cast<int>(bytesPerRow);
  // Bottom-up pictures have negative strides, which the common conversions take differently.
  const bool isTopDown =
      std::all_of(std::begin(picture.linesize), std::end(picture.linesize), [](int rowBytes) { return rowBytes >= 0; });
  const Conversion conversion{picture, destination, stride, constantsFor(matrixOf(picture), isFullRange(picture))};
  if (isTopDown && (convertYuv(conversion) == 0 || convertRgb(conversion) == 0)) return {};
  return convertWithScaler(picture, destination, stride);
}

AVColorSpace BgraConverter::matrixOf(const AVFrame& picture) {
  if (picture.colorspace != AVCOL_SPC_UNSPECIFIED && picture.colorspace != AVCOL_SPC_RESERVED &&
      picture.colorspace != AVCOL_SPC_RGB) {
    return picture.colorspace;
  }
  return picture.height < kFirstLinesOfHighDefinition ? AVCOL_SPC_SMPTE170M : AVCOL_SPC_BT709;
}

bool BgraConverter::isFullRange(const AVFrame& picture) {
  switch (picture.format) {
    case AV_PIX_FMT_YUVJ420P:
    case AV_PIX_FMT_YUVJ422P:
    case AV_PIX_FMT_YUVJ440P:
    case AV_PIX_FMT_YUVJ444P:
    case AV_PIX_FMT_YUVJ411P: return true;
    default: break;
  }
  if (picture.color_range == AVCOL_RANGE_UNSPECIFIED) return isGray(picture);
  return picture.color_range == AVCOL_RANGE_JPEG;
}

Expected<void> BgraConverter::convertWithScaler(const AVFrame& picture, std::uint8_t* destination, int bytesPerRow) {
  if (!prepareScaler(picture)) {
    const char* name = av_get_pix_fmt_name(static_cast<AVPixelFormat>(picture.format));
    return failure(MediaErrorCode::unsupportedFormat,
                   std::string("pictures of the layout ") + (name ? name : "?") + " cannot be converted");
  }
  const std::array<std::uint8_t*, 4> planes = {destination};
  const std::array<int, 4> strides = {bytesPerRow};
  if (sws_scale(scaler_.get(), picture.data, picture.linesize, 0, picture.height, planes.data(), strides.data()) < 0) {
    return failure(MediaErrorCode::conversionFailed, "a picture could not be converted");
  }
  return {};
}

bool BgraConverter::prepareScaler(const AVFrame& picture) {
  const AVColorSpace matrix = matrixOf(picture);
  const bool fullRange = isFullRange(picture);
  if (scaler_ && picture.width == width_ && picture.height == height_ && picture.format == format_ &&
      matrix == matrix_ && fullRange == fullRange_) {
    return true;
  }
  constexpr int kFlags = SWS_BILINEAR | SWS_ACCURATE_RND | SWS_FULL_CHR_H_INT;
  scaler_.reset(sws_getContext(picture.width, picture.height, static_cast<AVPixelFormat>(picture.format), picture.width,
                               picture.height, AV_PIX_FMT_BGRA, kFlags, nullptr, nullptr, nullptr));
  if (!scaler_) return false;
  // Fails for layouts without a matrix, which need none.
  sws_setColorspaceDetails(scaler_.get(), sws_getCoefficients(matrix), fullRange ? 1 : 0,
                           sws_getCoefficients(SWS_CS_DEFAULT), 1, 0, kUnity, kUnity);
  width_ = picture.width;
  height_ = picture.height;
  format_ = picture.format;
  matrix_ = matrix;
  fullRange_ = fullRange;
  return true;
}

}  // namespace tavrel
