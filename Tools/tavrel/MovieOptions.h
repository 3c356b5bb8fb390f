#pragma once

#include <filesystem>
#include <string>

#include "TavrelCaptureBase.h"

namespace tavrel::tool {

/// What several commands read from the command line about the movie they write. Both throw UsageError.

/// "WIDTHxHEIGHT"
Size parsedMovieSize(const std::string& text);
/// The container that a file's name asks for.
std::string fileTypeOf(const std::filesystem::path& output);

/// The largest part of a picture of `size`, centred, that has the proportions of `wanted`; in 0…1.
Rect centredPart(Size size, Size wanted);

}  // namespace tavrel::tool
