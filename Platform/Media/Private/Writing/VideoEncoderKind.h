#pragma once

#include <span>
#include <string>
#include <vector>

#include "Platform/Media/Private/ColorTags.h"
#include "Platform/Media/Private/ColorVolume.h"
#include "Platform/Media/Private/FFmpegHandles.h"
#include "Platform/Media/Private/Writing/VideoSettings.h"

namespace tavrel {

/// What an encoder of pictures is to make.
struct VideoEncoderOptions {
  /// What the first picture says.
  struct Pictures {
    ColorTags colors;
    ColorVolume volume;
    AVFieldOrder fieldOrder = AV_FIELD_PROGRESSIVE;
    bool isDeep = false;  ///< more than 8 bits

    friend bool operator==(const Pictures&, const Pictures&) = default;
    static Pictures like(const PixelBufferSnapshot& picture) {
      return {ColorTags::of(picture), ColorVolume::of(picture), fieldOrderOf(picture),
              picture.format() == PixelFormat::biPlanar420VideoRange10};
    }
  };

  VideoSettings settings;
  Pictures pictures;
  AVRational timeBase{1, 600};
  AVRational frameRate{30, 1};
  bool isRealTime = true;
  /// Goes on with a track that another encoder began: its packets carry their own headers.
  bool isSuccessor = false;
};

/// How many frames a live recording's encoder looks ahead: what an end by force takes along is a small part of a
/// second.
int liveLookahead(AVRational frameRate);

/// What an encoder of libavcodec runs on.
enum class EncoderDevice { processor, nvidia, vaapi, v4l2 };

/// How one of libavcodec's encoders is opened.
struct VideoEncoderKind {
  const char* name;
  AVCodecID codec;
  EncoderDevice device;
  /// Sets what the encoder's own options are, and the context's fields that they go with.
  void (*setOptions)(AVDictionary*& options, AVCodecContext& context, const VideoEncoderOptions& wanted);

  /// Of the frames that it is given.
  AVPixelFormat pixelFormat(bool isDeep) const {
    if (device != EncoderDevice::processor) return AV_PIX_FMT_NV12;
    return isDeep && codec != AV_CODEC_ID_H264 ? AV_PIX_FMT_YUV420P10 : AV_PIX_FMT_YUV420P;
  }
  /// Built in, and the system has such a device.
  bool isPresent() const;

  /// All that can be used, hardware before software; of each coding the better first.
  static std::span<const VideoEncoderKind> all();
};

/// One way to open an encoder.
struct VideoEncoderAttempt {
  const VideoEncoderKind* kind;
  std::string node;         ///< of a device; empty where the encoder finds it by itself
  bool isLowPower = false;  ///< VAAPI's other entry point, the only one of some devices
  bool hasCap = true;       ///< constant quality with a highest bit rate, which not every device has
};

/// The ways to open an encoder with these settings, in order: all, or those of the encoder that they name.
std::vector<VideoEncoderAttempt> videoEncoderAttempts(const VideoSettings& settings);

}  // namespace tavrel
