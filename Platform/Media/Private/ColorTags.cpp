#include "Platform/Media/Private/Writing/ColorTags.h"

#include <array>
#include <utility>

#include "Platform/Graphics/PixelBufferAttachments.h"

namespace tavrel {
namespace {

template <typename Tag>
using Names = std::array<std::pair<std::string_view, Tag>, 3>;

constexpr std::array<std::pair<std::string_view, AVColorPrimaries>, 4> kPrimaries{
    {{kColorPrimariesITU_R_709_2, AVCOL_PRI_BT709},
     {kColorPrimariesSMPTE_C, AVCOL_PRI_SMPTE170M},
     {kColorPrimariesEBU_3213, AVCOL_PRI_BT470BG},
     {kColorPrimariesITU_R_2020, AVCOL_PRI_BT2020}}};
constexpr Names<AVColorTransferCharacteristic> kTransfers{{{kTransferFunctionITU_R_709_2, AVCOL_TRC_BT709},
                                                           {kTransferFunctionSRGB, AVCOL_TRC_IEC61966_2_1},
                                                           {kTransferFunctionITU_R_2020, AVCOL_TRC_BT2020_10}}};
constexpr Names<AVColorSpace> kMatrices{{{kYCbCrMatrixITU_R_601_4, AVCOL_SPC_SMPTE170M},
                                         {kYCbCrMatrixITU_R_709_2, AVCOL_SPC_BT709},
                                         {kYCbCrMatrixITU_R_2020, AVCOL_SPC_BT2020_NCL}}};

template <typename List, typename Tag>
void take(const PixelBufferSnapshot& picture, std::string_view key, const List& names, Tag& tag) {
  const auto value = picture.attachment(key);
  if (!value) return;
  for (const auto& [name, meaning] : names) {
    if (*value == name) tag = meaning;
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

}  // namespace tavrel
