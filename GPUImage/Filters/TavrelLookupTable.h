#pragma once

#include <filesystem>
#include <memory>
#include <string_view>

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"
#include "Platform/Imaging/Image.h"

namespace tavrel {

/// \file
/// Converts colour lookup tables to the image that `TavrelGPUImageLookupFilter` takes: 512×512 pixels, opaque. Any
/// thread. Errors have the domain "lookup" and say what is wrong (for text, in which line) and what would be right.

/// Reads a ".cube" text, a HALD image or an image in the filter's layout, detected by content. A 512×512 image could be
/// either of the latter; it is taken for the one in which neighbouring colours differ less.
TAVREL_API Expected<std::shared_ptr<Image>> TavrelLookupImageFromFile(const std::filesystem::path& file);

/// Parses a ".cube" file (Cube LUT format, version 1.0): LUT_1D_SIZE 2 to 65536 or LUT_3D_SIZE 2 to 256, then that many
/// (cubed for 3D, red fastest) rows of red, green and blue; before the rows TITLE, DOMAIN_MIN, DOMAIN_MAX,
/// LUT_1D_INPUT_RANGE, LUT_3D_INPUT_RANGE and comments. Colours between rows are interpolated, inputs are clamped to
/// the domain, and results to 0…1.
TAVREL_API Expected<std::shared_ptr<Image>> TavrelLookupImageFromCube(std::string_view text);

/// Converts a HALD image of level L from 2 to 16: a square with sides of L³ pixels that are, row by row, the colours of
/// a lattice with L² steps per edge, red fastest, then green, then blue.
TAVREL_API Expected<std::shared_ptr<Image>> TavrelLookupImageFromHald(const Image& picture);

/// The identity table. Edit it in any image editor to make a table.
TAVREL_API std::shared_ptr<Image> TavrelLookupIdentityImage();

}  // namespace tavrel
