#pragma once

#include <array>
#include <string>

extern "C" {
#include <libavutil/error.h>
}

#include "Platform/Foundation/Error.h"
#include "Platform/Media/MediaError.h"

namespace tavrel {

/// FFmpeg's words for one of its error codes.
inline std::string ffmpegErrorText(int result) {
  std::array<char, AV_ERROR_MAX_STRING_SIZE> text{};
  av_strerror(result, text.data(), text.size());
  return text.data();
}

/// `usual`, unless FFmpeg ran out of memory.
MediaErrorCode mediaErrorCode(int result, MediaErrorCode usual);

/// "WHAT: FFmpeg's words"
Error ffmpegError(MediaErrorCode usual, int result, const std::string& what);

/// "WHAT (LINE): FFmpeg's words", with the error line that FFmpeg wrote on this thread since `takeFFmpegLogLine` was
/// called, where there is one.
Error loggedFFmpegError(MediaErrorCode usual, int result, const std::string& what);

}  // namespace tavrel
