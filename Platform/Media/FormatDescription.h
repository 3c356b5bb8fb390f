#pragma once

#include <optional>
#include <string>

#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Geometry.h"
#include "Platform/Media/AudioFormat.h"
#include "Platform/Media/MediaType.h"

namespace tavrel {

/// The format of a sample buffer.
struct FormatDescription {
  MediaType mediaType = MediaType::audio;
  /// Audio only. For compressed audio only rate and channels are valid.
  AudioFormat audioFormat;
  /// Video only; in pixels.
  Size videoSize;
  /// Short lower-case codec name ("aac", "opus", "h264"); empty for PCM and pixel buffers.
  std::string codecName;
  /// A decoder's initialisation data; may be empty.
  Data codecExtradata;

  bool isCompressed() const { return !codecName.empty(); }
  friend bool operator==(const FormatDescription&, const FormatDescription&) = default;
};

}  // namespace tavrel
