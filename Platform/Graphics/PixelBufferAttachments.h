#pragma once

#include <string_view>

namespace tavrel {

/// Attachments that describe a pixel buffer's colour space: keys, then their values (ITU-R recommendations).
inline constexpr std::string_view kPixelBufferColorPrimariesKey = "ColorPrimaries";
inline constexpr std::string_view kPixelBufferTransferFunctionKey = "TransferFunction";
inline constexpr std::string_view kPixelBufferYCbCrMatrixKey = "YCbCrMatrix";

/// Of any key: nobody knows, and nothing may be assumed. Without the attachment a movie writer chooses.
inline constexpr std::string_view kColorUnspecified = "Unspecified";

inline constexpr std::string_view kColorPrimariesITU_R_709_2 = "ITU_R_709_2";
inline constexpr std::string_view kColorPrimariesSMPTE_C = "SMPTE_C";
inline constexpr std::string_view kColorPrimariesEBU_3213 = "EBU_3213";
inline constexpr std::string_view kColorPrimariesITU_R_2020 = "ITU_R_2020";

inline constexpr std::string_view kTransferFunctionITU_R_709_2 = "ITU_R_709_2";
inline constexpr std::string_view kTransferFunctionSMPTE_170M = "SMPTE_170M";  ///< the curve of ITU_R_709_2
inline constexpr std::string_view kTransferFunctionSRGB = "IEC_sRGB";
inline constexpr std::string_view kTransferFunctionITU_R_2020 = "ITU_R_2020";
inline constexpr std::string_view kTransferFunctionSMPTE_ST_2084_PQ = "SMPTE_ST_2084_PQ";
inline constexpr std::string_view kTransferFunctionITU_R_2100_HLG = "ITU_R_2100_HLG";

inline constexpr std::string_view kYCbCrMatrixITU_R_601_4 = "ITU_R_601_4";
inline constexpr std::string_view kYCbCrMatrixITU_R_470_BG = "ITU_R_470_BG";  ///< the numbers of ITU_R_601_4
inline constexpr std::string_view kYCbCrMatrixITU_R_709_2 = "ITU_R_709_2";
inline constexpr std::string_view kYCbCrMatrixITU_R_2020 = "ITU_R_2020";

/// The shape of a pixel, as "64:45"; square without it.
inline constexpr std::string_view kPixelBufferPixelAspectRatioKey = "PixelAspectRatio";

/// What a film of high dynamic range was made on (SMPTE ST 2086), as "G(x,y)B(x,y)R(x,y)WP(x,y)L(most,least)":
/// chromaticities in 0.00002, luminance in 0.0001 cd/m².
inline constexpr std::string_view kPixelBufferMasteringDisplayColorVolumeKey = "MasteringDisplayColorVolume";
/// Its brightest pixel and its brightest mean of a picture in cd/m² (CTA-861.3), as "1000,400".
inline constexpr std::string_view kPixelBufferContentLightLevelKey = "ContentLightLevel";

/// A picture of two fields taken one after the other; without it the picture was taken at once.
inline constexpr std::string_view kPixelBufferFieldDetailKey = "FieldDetail";
inline constexpr std::string_view kFieldDetailTemporalTopFirst = "TemporalTopFirst";
inline constexpr std::string_view kFieldDetailTemporalBottomFirst = "TemporalBottomFirst";

}  // namespace tavrel
