#pragma once

#include <array>
#include <cstddef>
#include <string_view>
#include <vector>

#include "Platform/Foundation/Error.h"

namespace tavrel {

using Color = std::array<float, 3>;

/// A curve for each component, or a lattice of colours.
struct ColorStage {
  enum class Kind { curves, lattice };

  Kind kind = Kind::lattice;
  std::size_t size = 0;  ///< entries of a curve, or along an edge of the lattice
  Color domainMinimum{0, 0, 0};
  Color domainMaximum{1, 1, 1};
  std::vector<Color> colors = {};  ///< of the lattice with red growing fastest

  std::size_t rows() const { return kind == Kind::curves ? size : size * size * size; }
  /// The colour for `input`, interpolated linearly between the nearest entries.
  Color at(const Color& input) const;
};

/// A colour lookup table of any size: curves, a lattice, or both in this order.
struct ColorTable {
  std::vector<ColorStage> stages = {};
  /// Full range is turned into 16…235 of 255 before, or such into full range behind.
  bool takesVideoRange = false;
  bool givesVideoRange = false;

  Color at(const Color& input) const;
};

inline constexpr float kVideoBlack = 16.0F / 255;
inline constexpr float kVideoSpan = 219.0F / 255;

/// The text of a ".cube", ".3dl" or ".csp" file, told by its first lines.
Expected<ColorTable> parseColorTable(std::string_view text);

// The same for a text of which the kind is known.
Expected<ColorTable> parseCube(std::string_view text);
Expected<ColorTable> parse3dl(std::string_view text);
Expected<ColorTable> parseCineSpace(std::string_view text);

}  // namespace tavrel
