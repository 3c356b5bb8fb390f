#pragma once

#include <png.h>

#include "Platform/Foundation/Data.h"

namespace tavrel {

/// The profile of a PNG's colours, by the first of its chunks cICP, iCCP, sRGB, and gAMA with cHRM, as the PNG standard
/// ranks them; empty for sRGB. Behind `png_read_info`, with cICP and sRGB kept as unknown chunks.
Data colorProfileOfPng(png_structp png, png_infop info);

}  // namespace tavrel
