#pragma once

#include <array>
#include <cstddef>
#include <string_view>
#include <vector>

#include "Platform/Foundation/Error.h"

namespace tavrel {

using Color = std::array<float, 3>;

/// A colour lookup table of any size: a curve for each component, or a lattice of colours.
struct ColorTable {
  enum class Kind { curves, lattice };

  Kind kind = Kind::lattice;
  std::size_t size = 0;  ///< entries of a curve, or along an edge of the lattice
  Color domainMinimum{0, 0, 0};
  Color domainMaximum{1, 1, 1};
  std::vector<Color> colors;  ///< of the lattice with red growing fastest

  /// The colour for `input`, interpolated between the nearest entries.
  Color at(const Color& input) const;
};

/// Reads the text of a ".cube" file.
Expected<ColorTable> parseCube(std::string_view text);

}  // namespace tavrel
