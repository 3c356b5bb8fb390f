#pragma once

#include <filesystem>
#include <memory>
#include <string_view>

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"
#include "Platform/Imaging/Image.h"

namespace tavrel {

/// A colour lookup table with its own size and precision; see `TavrelGPUImageColorTableFilter`. Immutable.
struct ColorTable;

/// \file
/// Converts colour lookup tables to the image that `TavrelGPUImageLookupFilter` takes: 512×512 pixels, opaque. Any
/// thread. Errors have the domain "lookup" and say what is wrong (for text, in which line) and what would be right.

/// What a file holds.
struct TavrelLookupTable {
  std::shared_ptr<const ColorTable> table;  ///< nullptr when the file is an image in the filter's layout
  std::shared_ptr<Image> image;             ///< the same for `TavrelGPUImageLookupFilter`
};

/// Reads a ".cube", ".3dl" or ".csp" text, or an image as `TavrelLookupImageFromFile` does. A ".csp" file is of version
/// 100; a ".3dl" file has its whole numbers scaled by the depth that holds the largest.
TAVREL_API Expected<TavrelLookupTable> TavrelLookupTableFromFile(const std::filesystem::path& file);

/// Reads a text, a HALD image or an image in the filter's layout, detected by content. A 512×512 image could be
/// either of the latter; it is taken for the one in which neighbouring colours differ less.
TAVREL_API Expected<std::shared_ptr<Image>> TavrelLookupImageFromFile(const std::filesystem::path& file);

/// Parses a ".cube" file (Cube LUT format, version 1.0): LUT_1D_SIZE 2 to 65536, LUT_3D_SIZE 2 to 256 or both, then
/// that many (cubed for 3D, red fastest) rows of red, green and blue, first of the curves; before the rows TITLE,
/// BMD_TITLE, DOMAIN_MIN, DOMAIN_MAX, LUT_1D_INPUT_RANGE, LUT_3D_INPUT_RANGE, LUT_IN_VIDEO_RANGE, LUT_OUT_VIDEO_RANGE
/// and comments. Colours between rows are interpolated, inputs are clamped to the domain, and results to 0…1.
TAVREL_API Expected<std::shared_ptr<Image>> TavrelLookupImageFromCube(std::string_view text);

/// Converts a HALD image of level L from 2 to 16: a square with sides of L³ pixels that are, row by row, the colours of
/// a lattice with L² steps per edge, red fastest, then green, then blue.
TAVREL_API Expected<std::shared_ptr<Image>> TavrelLookupImageFromHald(const Image& picture);

/// The identity table. Edit it in any image editor to make a table.
TAVREL_API std::shared_ptr<Image> TavrelLookupIdentityImage();

}  // namespace tavrel
