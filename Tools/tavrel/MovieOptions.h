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

}  // namespace tavrel::tool
