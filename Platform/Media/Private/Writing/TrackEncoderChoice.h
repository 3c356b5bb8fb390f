#pragma once

#include <cstdint>
#include <memory>
#include <optional>

#include "Platform/Foundation/Dictionary.h"
#include "Platform/Media/MediaType.h"
#include "Platform/Media/Private/Writing/TrackEncoder.h"

namespace tavrel {

struct TrackEncoderChoice {
  std::unique_ptr<TrackEncoder> encoder;
  Size size;  ///< of the encoded pictures; zero for sound, and for packets that are stored as they come
};

/// The encoder that `settings` ask for; without settings, one that stores packets as they come. `hint` is the format of
/// subtitles. Fails with the fault of settings that cannot be met.
Expected<TrackEncoderChoice> chooseTrackEncoder(MediaType mediaType, const std::optional<Dictionary>& settings,
                                                std::int32_t timescale,
                                                const std::shared_ptr<const FormatDescription>& hint);

}  // namespace tavrel
