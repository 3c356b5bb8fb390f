#pragma once

#include <filesystem>
#include <memory>
#include <string_view>

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"
#include "Platform/Imaging/Image.h"

namespace tavrel {

/// \file
/// Colour lookup tables from other programs, as the picture that `TavrelGPUImageLookupFilter` takes: 512×512 pixels,
/// opaque. Any thread. Errors of the domain "lookup" say what is wrong, for text with the line, and what would be
/// right.

/// Tells by the contents what a file is: a ".cube" text, a HALD picture or a picture in the filter's layout. A picture
/// of 512×512 may be either of the latter two; it is taken for the one in which neighbouring colours differ less.
TAVREL_API Expected<std::shared_ptr<Image>> TavrelLookupImageFromFile(const std::filesystem::path& file);

/// The text of a ".cube" file (the Cube LUT format, version 1.0): LUT_1D_SIZE 2 to 65536 or LUT_3D_SIZE 2 to 256, then
/// that many (cubed, for 3D; red grows fastest) rows of red, green and blue; TITLE, DOMAIN_MIN, DOMAIN_MAX,
/// LUT_1D_INPUT_RANGE, LUT_3D_INPUT_RANGE and comments before them. Colours between the rows are interpolated, those
/// outside the domain take its nearest one, results outside 0…1 are cut off.
TAVREL_API Expected<std::shared_ptr<Image>> TavrelLookupImageFromCube(std::string_view text);

/// A HALD picture of level L from 2 to 16: a square of L³ pixels to a side whose pixels, row by row, are the colours of
/// a lattice of L² steps to an edge, red growing fastest, then green, then blue.
TAVREL_API Expected<std::shared_ptr<Image>> TavrelLookupImageFromHald(const Image& picture);

/// The table that changes nothing: draw one's changes into it with any picture editor.
TAVREL_API std::shared_ptr<Image> TavrelLookupIdentityImage();

}  // namespace tavrel
