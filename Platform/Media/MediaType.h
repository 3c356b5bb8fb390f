#pragma once

namespace tavrel {

/// What a track holds.
enum class MediaType { video, audio, subtitle };

}  // namespace tavrel
