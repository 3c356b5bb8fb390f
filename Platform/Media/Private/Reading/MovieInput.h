#pragma once

#include <filesystem>
#include <string>

#include "Platform/Foundation/Error.h"
#include "Platform/Media/MediaError.h"
#include "Platform/Media/Private/FFmpegHandles.h"

namespace tavrel {

/// "FILE is not a movie that can be read: REASON"
Error unreadableMovie(const std::filesystem::path& path, const std::string& reason, MediaErrorCode code);

/// Opens a regular file with libavformat and lets it look at the tracks, in as many bytes as it takes usually or in
/// `searchedBytes`. Pictures and texts are refused.
Expected<InputFormat> openMovieInput(const std::filesystem::path& path, std::int64_t searchedBytes = 0);

/// What is taken off the file's time stamps, in microseconds, to make its time line begin at 0. Containers with edit
/// lists have theirs at 0, unless they begin long after that.
std::int64_t timelineOffset(const AVFormatContext& file);

/// Texts or pictures that are shown over the movie's.
bool isSubtitle(const AVStream& stream);
/// A cover.
bool isArtwork(const AVStream& stream);

/// Pictures or sound that belong to the movie itself and whose coding can be decoded.
bool isMedia(const AVStream& stream);
/// Media of which enough is known to decode it: what begins late in a file may not have been looked at.
bool isPlayable(const AVStream& stream);
/// A track that can be read: playable, or subtitles, which are read as they are stored.
bool isReadable(const AVStream& stream);

}  // namespace tavrel
