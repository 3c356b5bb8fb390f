#pragma once

#include <optional>
#include <string>

#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Geometry.h"
#include "Platform/Media/AudioFormat.h"
#include "Platform/Media/MediaType.h"

namespace tavrel {

/// What the samples of a buffer are.
struct FormatDescription {
  MediaType mediaType = MediaType::audio;
  /// Sound: the PCM format; for compressed sound only its rate and channels count.
  AudioFormat audioFormat;
  /// Pictures: width and height in pixels.
  Size videoSize;
  /// Short lower-case name of the coding ("aac", "opus", "h264"); empty for PCM and for pixel buffers.
  std::string codecName;
  /// What a decoder must know before the first packet of a compressed track; may be empty.
  Data codecExtradata;

  bool isCompressed() const { return !codecName.empty(); }
  friend bool operator==(const FormatDescription&, const FormatDescription&) = default;
};

}  // namespace tavrel
