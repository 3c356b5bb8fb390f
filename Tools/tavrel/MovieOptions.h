#pragma once

#include <CLI/CLI.hpp>
#include <filesystem>
#include <string>

#include "TavrelCaptureBase.h"

namespace tavrel::tool {

/// What several commands read from the command line about the movie they write. What is parsed throws UsageError.

/// "WIDTHxHEIGHT"
Size parsedMovieSize(const std::string& text);
/// `--fragmented` of a command.
void addFragmentedFlag(CLI::App& command, bool& isFragmented);
/// The container for a file's extension.
std::string fileTypeOf(const std::filesystem::path& output);
/// How the sound of `track` is encoded anew for a file of this type: as `asked`, else in the usual coding.
Dictionary soundSettings(const AssetTrack& track, const std::string& fileType, Dictionary asked);
/// Whether the movie may have this name: it is new, `isForced`, or the person at the terminal agrees to replace what
/// has it. Else it is said why not.
bool mayWrite(const std::filesystem::path& output, bool isForced);

}  // namespace tavrel::tool
