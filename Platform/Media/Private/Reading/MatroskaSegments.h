#pragma once

#include <cstdint>
#include <vector>

#include "Platform/Media/Private/FFmpegHandles.h"

namespace tavrel {

/// Where the second and later of the movies begin that make up a Matroska file, in bytes: each is a document of its own
/// (RFC 8794) whose times begin anew, as when two files were strung together. Empty for nearly every file.
std::vector<std::int64_t> laterMatroskaSegments(const AVFormatContext& file);

}  // namespace tavrel
