#pragma once

#include <filesystem>
#include <string>

#include "Platform/Foundation/Error.h"
#include "Platform/Media/MediaError.h"
#include "Platform/Media/Private/FFmpegHandles.h"

namespace tavrel {

/// "FILE is not a movie that can be read: REASON"
Error unreadableMovie(const std::filesystem::path& path, const std::string& reason, MediaErrorCode code);

/// Opens a regular file with libavformat and lets it look at the tracks. Pictures and texts are refused.
Expected<InputFormat> openMovieInput(const std::filesystem::path& path);

/// What is taken off the file's time stamps, in microseconds, to make its time line begin at 0. Containers with edit
/// lists have theirs at 0, unless they begin long after that.
std::int64_t timelineOffset(const AVFormatContext& file);

/// Texts or pictures that are shown over the movie's.
bool isSubtitle(const AVStream& stream);
/// A cover.
bool isArtwork(const AVStream& stream);

/// Whether a track's samples can be decoded and belong to the movie itself.
bool isPlayable(const AVStream& stream);

}  // namespace tavrel
