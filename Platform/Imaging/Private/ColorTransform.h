#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>

#include "Platform/Foundation/Data.h"

namespace tavrel {

/// Converts straight pixels between the colour space of an ICC profile and sRGB, through little-cms2, by the perceptual
/// intent. Alpha is copied. Any thread.
class ColorTransform {
 public:
  enum class Layout {
    bgra8,       ///< B, G, R, A
    rgba16,      ///< R, G, B, A, 16 bits each in the host's order
    cmykLight8,  ///< C, M, Y, K, where 255 is no ink
  };

  /// nullptr when nothing has to be converted: the profile is empty, is (nearly) sRGB, or cannot belong to such pixels.
  /// Grey pixels are given as those of three equal components. The last ones asked for are kept.
  static std::shared_ptr<const ColorTransform> toSRGB(std::span<const std::uint8_t> profile, Layout from, Layout to);
  /// The way back; `from` and `to` are of the same layout. nullptr also for profiles of other than RGB pixels.
  static std::shared_ptr<const ColorTransform> fromSRGB(std::span<const std::uint8_t> profile, Layout layout);

  virtual ~ColorTransform() = default;
  /// In place where both layouts are of one size.
  virtual void convert(const void* from, void* to, std::size_t pixels) const = 0;
};

/// True for a profile of RGB pixels, which a picture that is written can have.
bool isProfileOfRGB(std::span<const std::uint8_t> profile);

/// Chromaticities of white, red, green and blue, and the exponent that makes light of stored values.
struct ColorPrimaries {
  double white[2], red[2], green[2], blue[2];
};
inline constexpr ColorPrimaries kSRGBPrimaries = {{0.3127, 0.329}, {0.64, 0.33}, {0.3, 0.6}, {0.15, 0.06}};

/// A profile of pure gamma; of sRGB's curve where `exponent` is 0. Empty when the primaries are impossible.
Data makeColorProfile(const ColorPrimaries& primaries, double exponent);

/// A profile of code points of ITU-T H.273, as CICP chunks and AVIF name them; empty for sRGB and for unknown ones.
/// Light above diffuse white (203 cd/m² of PQ, 75 % of HLG) is cut off.
Data makeColorProfile(int colorPrimaries, int transferCharacteristics);

}  // namespace tavrel
