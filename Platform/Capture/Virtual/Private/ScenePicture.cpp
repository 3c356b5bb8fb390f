#include "Platform/Capture/Virtual/Private/ScenePicture.h"

#include <libyuv.h>

#include <cstdlib>

#include "Platform/Media/Private/BgraConverter.h"
#include "Platform/Media/Private/TrackDecoder.h"

namespace tavrel {
namespace {

/// How to turn a stored picture upright: clockwise, and mirrored before that.
struct Turn {
  bool isMirrored;
  libyuv::RotationMode rotation;
};

/// By EXIF orientation, 1 to 8.
constexpr Turn kTurns[] = {{false, libyuv::kRotate0},  {true, libyuv::kRotate0},   {false, libyuv::kRotate180},
                           {true, libyuv::kRotate180}, {true, libyuv::kRotate270}, {false, libyuv::kRotate90},
                           {true, libyuv::kRotate90},  {false, libyuv::kRotate270}};

Turn turnOf(const AVFrame& stored) {
  const AVDictionaryEntry* entry = av_dict_get(stored.metadata, "Orientation", nullptr, 0);
  const long orientation = entry ? std::strtol(entry->value, nullptr, 10) : 1;
  return orientation >= 1 && orientation <= 8 ? kTurns[orientation - 1] : kTurns[0];
}

BgraPicture turned(BgraPicture& stored, Turn turn) {
  const BgraCanvas from = stored.canvas();
  const int stride = static_cast<int>(from.bytesPerRow);
  BgraPicture mirrored;
  mirrored.resize(from.width, from.height);
  const auto flip = turn.isMirrored ? libyuv::ARGBMirror : libyuv::ARGBCopy;
  flip(from.bytes, stride, mirrored.canvas().bytes, stride, from.width, from.height);
  const bool swapsSides = turn.rotation == libyuv::kRotate90 || turn.rotation == libyuv::kRotate270;
  BgraPicture upright;
  upright.resize(swapsSides ? from.height : from.width, swapsSides ? from.width : from.height);
  libyuv::ARGBRotate(mirrored.canvas().bytes, stride, upright.canvas().bytes,
                     static_cast<int>(upright.canvas().bytesPerRow), from.width, from.height, turn.rotation);
  return upright;
}

/// Transparent parts lie on black.
void makeOpaque(const BgraCanvas& canvas) {
  const int stride = static_cast<int>(canvas.bytesPerRow);
  libyuv::ARGBAttenuate(canvas.bytes, stride, canvas.bytes, stride, canvas.width, canvas.height);
  for (int y = 0; y < canvas.height; ++y) {
    for (int x = 0; x < canvas.width; ++x) canvas.pixel(x, y)[3] = 255;
  }
}

}  // namespace

Expected<BgraPicture> loadScenePicture(const std::filesystem::path& path) {
  auto decoder = TrackDecoder::open(path, 0, StillPictures::accepted);
  if (!decoder) return tl::unexpected(decoder.error());
  if ((*decoder)->parameters().codec_type != AVMEDIA_TYPE_VIDEO) return failure("capture", 1, "it holds only sound");
  const auto frame = (*decoder)->next([] { return true; });
  if (!frame) return tl::unexpected(frame.error());
  if (!*frame) return failure("capture", 1, "it holds no picture that can be decoded");
  BgraPicture stored;
  stored.resize((*frame)->width, (*frame)->height);
  BgraConverter converter;
  const auto converted = converter.convert(**frame, stored.canvas().bytes, stored.canvas().bytesPerRow);
  if (!converted) return tl::unexpected(converted.error());
  makeOpaque(stored.canvas());
  return turned(stored, turnOf(**frame));
}

}  // namespace tavrel
