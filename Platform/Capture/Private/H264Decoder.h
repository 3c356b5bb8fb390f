#pragma once

#include <memory>

#include "Platform/Capture/Private/FrameConversion.h"

struct AVCodecContext;
struct AVFrame;
struct AVPacket;

namespace tavrel {

/// Decodes a camera's H.264, one picture for each it is given: cameras send no pictures out of order. By libavcodec.
/// One thread at a time.
class H264Decoder {
 public:
  H264Decoder();
  H264Decoder(const H264Decoder&) = delete;
  H264Decoder& operator=(const H264Decoder&) = delete;
  ~H264Decoder();

  /// The picture in planes (`FrameLayout::i420`), with its matrix and range; its bytes live until the next call. Fails
  /// with `damagedFrame` when it is damaged, of another size than the frame's, or no key picture has come yet.
  Expected<RawFrame> decode(const RawFrame& frame);

 private:
  AVCodecContext* context_ = nullptr;
  AVPacket* packet_ = nullptr;
  AVFrame* picture_ = nullptr;
};

}  // namespace tavrel
