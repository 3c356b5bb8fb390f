#pragma once

#include <string>

#include "Platform/Graphics/PixelBufferSnapshot.h"
#include "Platform/Media/FFmpegFunctions.h"

namespace tavrel {

/// How bright and how colourful a film of high dynamic range is, in the words of PixelBufferAttachments.h; empty where
/// nobody says it.
struct ColorVolume {
  std::string masteringDisplay;
  std::string contentLight;

  friend bool operator==(const ColorVolume&, const ColorVolume&) = default;

  static ColorVolume of(const PixelBufferSnapshot& picture);
  static ColorVolume of(const AVFrame& picture);
  static ColorVolume of(const AVStream& stream);
  /// Has a file of this stream say it.
  void addTo(AVStream& stream) const;
};

}  // namespace tavrel
