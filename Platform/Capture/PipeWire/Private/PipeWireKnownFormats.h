#pragma once

#include <spa/param/format.h>
#include <spa/param/video/raw.h>

#include <cstdint>
#include <span>

#include "Platform/Capture/Private/FrameConversion.h"

namespace tavrel {

/// A format of PipeWire's that we can read.
struct PipeWireKnownFormat {
  spa_video_format format = SPA_VIDEO_FORMAT_UNKNOWN;
  FrameLayout layout = FrameLayout::bgra;
  PackedPixel packed = {};
  spa_media_subtype subtype = SPA_MEDIA_SUBTYPE_raw;
};

/// Cheapest first; those with few colours, or none, only where there is nothing else.
std::span<const PipeWireKnownFormat> knownPipeWireFormats();
/// nullptr for all others. `format` is that of raw pictures.
const PipeWireKnownFormat* knownPipeWireFormat(std::uint32_t subtype, std::uint32_t format);

}  // namespace tavrel
