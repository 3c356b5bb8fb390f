#include "Platform/Media/Private/ColorTags.h"

#include <fmt/format.h>

#include <algorithm>
#include <iterator>
#include <string>
#include <string_view>

#include "Platform/Graphics/PixelBufferAttachments.h"
#include "Platform/Media/Private/ColorVolume.h"

namespace tavrel {
namespace {

template <typename Tag>
struct NamedTag {
  Tag tag;
  std::string_view name;
};

// Where two tags share a name, a movie is written with the first.
constexpr NamedTag<AVColorPrimaries> kPrimaries[] = {
    {AVCOL_PRI_BT709, kColorPrimariesITU_R_709_2}, {AVCOL_PRI_SMPTE170M, kColorPrimariesSMPTE_C},
    {AVCOL_PRI_SMPTE240M, kColorPrimariesSMPTE_C}, {AVCOL_PRI_BT470BG, kColorPrimariesEBU_3213},
    {AVCOL_PRI_BT2020, kColorPrimariesITU_R_2020}, {AVCOL_PRI_UNSPECIFIED, kColorUnspecified}};
constexpr NamedTag<AVColorTransferCharacteristic> kTransfers[] = {
    {AVCOL_TRC_BT709, kTransferFunctionITU_R_709_2},           {AVCOL_TRC_SMPTE170M, kTransferFunctionSMPTE_170M},
    {AVCOL_TRC_IEC61966_2_1, kTransferFunctionSRGB},           {AVCOL_TRC_BT2020_10, kTransferFunctionITU_R_2020},
    {AVCOL_TRC_BT2020_12, kTransferFunctionITU_R_2020},        {AVCOL_TRC_SMPTE2084, kTransferFunctionSMPTE_ST_2084_PQ},
    {AVCOL_TRC_ARIB_STD_B67, kTransferFunctionITU_R_2100_HLG}, {AVCOL_TRC_UNSPECIFIED, kColorUnspecified}};
constexpr NamedTag<AVColorSpace> kMatrices[] = {{AVCOL_SPC_BT709, kYCbCrMatrixITU_R_709_2},
                                                {AVCOL_SPC_SMPTE170M, kYCbCrMatrixITU_R_601_4},
                                                {AVCOL_SPC_BT470BG, kYCbCrMatrixITU_R_470_BG},
                                                {AVCOL_SPC_BT2020_NCL, kYCbCrMatrixITU_R_2020},
                                                {AVCOL_SPC_UNSPECIFIED, kColorUnspecified}};

template <typename Tag, std::size_t Count>
void take(const PixelBufferSnapshot& picture, std::string_view key, const NamedTag<Tag> (&known)[Count], Tag& tag) {
  const auto value = picture.attachment(key);
  if (!value) return;
  for (const auto& each : known) {
    if (*value != each.name) continue;
    tag = each.tag;
    return;
  }
}

template <typename Tag, std::size_t Count>
void attach(PixelBuffer& buffer, std::string_view key, const NamedTag<Tag> (&known)[Count], Tag tag) {
  for (const auto& each : known) {
    // Planes without tags stay so: only whoever makes planes of RGB may choose.
    if (each.name == kColorUnspecified && buffer.pixelFormat() == PixelFormat::bgra32) continue;
    if (each.tag == tag) buffer.setAttachment(std::string(key), std::string(each.name), true);
  }
}

}  // namespace

ColorTags ColorTags::of(const PixelBufferSnapshot& picture) {
  ColorTags tags;
  take(picture, kPixelBufferColorPrimariesKey, kPrimaries, tags.primaries);
  take(picture, kPixelBufferTransferFunctionKey, kTransfers, tags.transfer);
  take(picture, kPixelBufferYCbCrMatrixKey, kMatrices, tags.matrix);
  return tags;
}

void attachDescription(PixelBuffer& buffer, const AVFrame& picture) {
  attach(buffer, kPixelBufferColorPrimariesKey, kPrimaries, picture.color_primaries);
  attach(buffer, kPixelBufferTransferFunctionKey, kTransfers, picture.color_trc);
  attach(buffer, kPixelBufferYCbCrMatrixKey, kMatrices, picture.colorspace);
  const AVRational shape = picture.sample_aspect_ratio;
  if (shape.num > 0 && shape.den > 0 && shape.num != shape.den) {
    buffer.setAttachment(std::string(kPixelBufferPixelAspectRatioKey), fmt::format("{}:{}", shape.num, shape.den),
                         true);
  }
  const auto say = [&buffer](std::string_view key, std::string_view value) {
    if (!value.empty()) buffer.setAttachment(std::string(key), std::string(value), true);
  };
  if (picture.interlaced_frame) {
    say(kPixelBufferFieldDetailKey,
        picture.top_field_first ? kFieldDetailTemporalTopFirst : kFieldDetailTemporalBottomFirst);
  }
  // Pictures of fewer bits have been tone-mapped.
  if (buffer.pixelFormat() != PixelFormat::biPlanar420VideoRange10) return;
  const ColorVolume volume = ColorVolume::of(picture);
  say(kPixelBufferMasteringDisplayColorVolumeKey, volume.masteringDisplay);
  say(kPixelBufferContentLightLevelKey, volume.contentLight);
}

std::string_view matrixName(AVColorSpace matrix) {
  const auto* const known = std::find_if(std::begin(kMatrices), std::end(kMatrices),
                                         [matrix](const auto& each) { return each.tag == matrix; });
  const bool isNamed = known != std::end(kMatrices) && matrix != AVCOL_SPC_UNSPECIFIED;
  return isNamed ? known->name : std::string_view();
}

AVFieldOrder fieldOrderOf(const PixelBufferSnapshot& picture) {
  const auto detail = picture.attachment(kPixelBufferFieldDetailKey);
  if (!detail) return AV_FIELD_PROGRESSIVE;
  return *detail == kFieldDetailTemporalBottomFirst ? AV_FIELD_BB : AV_FIELD_TT;
}

}  // namespace tavrel
