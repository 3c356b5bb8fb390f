#pragma once

extern "C" {
#include <libavcodec/codec_par.h>
#include <libavutil/frame.h>
#include <libavutil/pixfmt.h>
}

#include <string_view>

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

/// Attaches what the file itself says about a decoded picture: its colours, its pixels' shape and its fields. An
/// untagged movie stays untagged.
void attachDescription(PixelBuffer& buffer, const AVFrame& picture);

/// The attachment's value; empty for a matrix that has none.
std::string_view matrixName(AVColorSpace matrix);

/// How the fields of a picture follow each other, by its attachment.
AVFieldOrder fieldOrderOf(const PixelBufferSnapshot& picture);

}  // namespace tavrel
