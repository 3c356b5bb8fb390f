#include "Platform/Media/Private/Reading/ColorPreparation.h"

#include "Platform/Foundation/ConsoleLog.h"
#include "Platform/Media/MediaError.h"
#include "Platform/Media/Private/Reading/BgraConverter.h"

namespace tavrel {
namespace {

bool isHighDynamicRange(const AVFrame& picture) {
  return picture.color_trc == AVCOL_TRC_SMPTE2084 || picture.color_trc == AVCOL_TRC_ARIB_STD_B67;
}

/// With tags for all that has to be known.
Frame tagged(const AVFrame& picture) {
  Frame copy(av_frame_clone(&picture));
  if (!copy) return copy;
  const bool isWide = isHighDynamicRange(picture);
  if (copy->color_primaries == AVCOL_PRI_UNSPECIFIED) copy->color_primaries = AVCOL_PRI_BT2020;
  if (copy->color_trc == AVCOL_TRC_UNSPECIFIED) copy->color_trc = AVCOL_TRC_BT709;
  const bool isUntagged = copy->colorspace == AVCOL_SPC_UNSPECIFIED;
  if (isUntagged) copy->colorspace = isWide ? AVCOL_SPC_BT2020_NCL : BgraConverter::matrixOf(picture);
  copy->color_range = BgraConverter::isFullRange(picture) ? AVCOL_RANGE_JPEG : AVCOL_RANGE_MPEG;
  return copy;
}

}  // namespace

std::string ColorPreparation::filtersFor(const AVFrame& picture) const {
  if (format_ == PixelFormat::biPlanar420VideoRange10) return "";
  const bool isRgb = format_ == PixelFormat::bgra32;
  const std::string result = isRgb ? "matrix=gbr:range=full,format=gbrp"
                                   : std::string("matrix=bt709:range=") +
                                         (format_ == PixelFormat::biPlanar420FullRange ? "full" : "limited") +
                                         ",format=yuv420p";
  if (isHighDynamicRange(picture)) {
    return "zscale=transfer=linear:npl=100,format=gbrpf32le,zscale=primaries=bt709,tonemap=hable:desat=0,"
           "zscale=transfer=bt709:" +
           result;
  }
  const bool isRareMatrix = picture.colorspace == AVCOL_SPC_YCGCO || picture.colorspace == AVCOL_SPC_SMPTE240M ||
                            picture.colorspace == AVCOL_SPC_FCC || picture.colorspace == AVCOL_SPC_BT2020_CL;
  if (isRareMatrix) return "zscale=" + result;
  const AVColorPrimaries primaries = picture.color_primaries;
  const bool isOther = primaries == AVCOL_PRI_BT2020 || primaries == AVCOL_PRI_SMPTE170M ||
                       primaries == AVCOL_PRI_SMPTE240M || primaries == AVCOL_PRI_BT470BG;
  return isRgb && isOther ? "zscale=primaries=bt709:transfer=bt709:" + result : "";
}

Expected<const AVFrame*> ColorPreparation::prepare(const AVFrame& picture) {
  std::string description = filtersFor(picture);
  if (description.empty() || isRefused_) return &picture;
  const Frame input = tagged(picture);
  if (!input) return failure(MediaErrorCode::allocationFailed, "there is no memory left for a picture");
  if (!filter_ || !filter_->fits(*input) || description != description_) {
    auto filter = FrameFilter::create(description, *input, {1, AV_TIME_BASE});
    if (!filter) {
      // A libavfilter without libzimg: better other colours than no picture.
      ConsoleLog::write("The colours of a movie stay as they are: {}", filter.error().description);
      isRefused_ = true;
      return &picture;
    }
    filter_ = std::move(*filter);
    description_ = std::move(description);
  }
  if (auto added = filter_->add(input.get()); !added) return tl::unexpected(added.error());
  auto prepared = filter_->next();
  if (prepared && !*prepared)
    return failure(MediaErrorCode::conversionFailed, "a picture's colours were not converted");
  return prepared;
}

}  // namespace tavrel
