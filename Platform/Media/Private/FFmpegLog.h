#pragma once

#include <string>

namespace tavrel {

/// Keeps FFmpeg off standard error for the whole process; call it before the first use of FFmpeg. Its errors are
/// remembered instead, to be told where a call fails.
void quietFFmpegLog();

/// The last error line that FFmpeg wrote on this thread since the last call, or an empty text.
std::string takeFFmpegLogLine();

}  // namespace tavrel
