#pragma once

#include <memory>
#include <string>

#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Geometry.h"
#include "Platform/Media/AudioFormat.h"
#include "Platform/Media/MediaType.h"

namespace tavrel {

struct StoredCoding;

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
  /// What else a file says about the coding (colours, pixel aspect, block size, bit rate), for decoders and writers;
  /// may be empty. Not compared.
  std::shared_ptr<const StoredCoding> storedCoding;

  bool isCompressed() const { return !codecName.empty(); }
  friend bool operator==(const FormatDescription& a, const FormatDescription& b) {
    return a.mediaType == b.mediaType && a.audioFormat == b.audioFormat && a.videoSize == b.videoSize &&
           a.codecName == b.codecName && a.codecExtradata == b.codecExtradata;
  }
};

}  // namespace tavrel
