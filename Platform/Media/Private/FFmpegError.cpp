#include "Platform/Media/Private/FFmpegError.h"

#include <fmt/format.h>

#include "Platform/Media/Private/FFmpegLog.h"

namespace tavrel {

MediaErrorCode mediaErrorCode(int result, MediaErrorCode usual) {
  return result == AVERROR(ENOMEM) ? MediaErrorCode::allocationFailed : usual;
}

Error ffmpegError(MediaErrorCode usual, int result, const std::string& what) {
  return makeError(mediaErrorCode(result, usual), fmt::format("{}: {}", what, ffmpegErrorText(result)));
}

Error loggedFFmpegError(MediaErrorCode usual, int result, const std::string& what) {
  const std::string line = takeFFmpegLogLine();
  return ffmpegError(usual, result, line.empty() ? what : fmt::format("{} ({})", what, line));
}

}  // namespace tavrel
