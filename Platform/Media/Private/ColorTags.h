#pragma once

extern "C" {
#include <libavutil/frame.h>
#include <libavutil/pixfmt.h>
}

#include "Platform/Graphics/PixelBuffer.h"
#include "Platform/Graphics/PixelBufferSnapshot.h"

namespace tavrel {

/// What a movie says about its colours. Range is always limited.
struct ColorTags {
  AVColorPrimaries primaries = AVCOL_PRI_BT709;
  AVColorTransferCharacteristic transfer = AVCOL_TRC_BT709;
  AVColorSpace matrix = AVCOL_SPC_SMPTE170M;

  friend bool operator==(const ColorTags&, const ColorTags&) = default;

  /// From the picture's attachments; the values above where it has none, or ones that are not known.
  static ColorTags of(const PixelBufferSnapshot& picture);
};

/// Attaches what the file itself says about a decoded picture's colours and its pixels' shape: an untagged movie stays
/// untagged.
void attachColors(PixelBuffer& buffer, const AVFrame& picture);

}  // namespace tavrel
