#pragma once

#include <functional>
#include <string>

#include "Platform/Foundation/Error.h"
#include "Platform/Media/Private/ColorTags.h"
#include "Platform/Media/Private/FFmpegHandles.h"
#include "Platform/Media/Private/Writing/VideoSettings.h"

namespace tavrel {

struct VideoEncoderKind;

/// An open video encoder of libavcodec: the first that opens of those that the machine has, hardware before software.
/// Takes I420 frames with limited range, gives packets in order of presentation. One thread at a time.
class VideoEncoder {
 public:
  using PacketHandler = std::function<void(Packet)>;

  struct Options {
    VideoSettings settings;
    ColorTags colors;
    AVRational timeBase{1, 600};
    bool isRealTime = true;
  };

  static Expected<VideoEncoder> open(const Options& options);
  /// Whether any encoder of this coding is built in.
  static bool isAvailable(bool isHEVC);

  const Options& options() const { return options_; }
  CodecParameters parameters() const;
  /// A frame to fill, of the right size, format and colours; valid until the next call.
  Expected<AVFrame*> writableFrame();
  /// Encodes `writableFrame`'s picture at `time`, in units of the time base; hands on the packets that became ready.
  Expected<void> encode(std::int64_t time, const PacketHandler& handler);
  /// Hands on what the encoder still holds. It takes no more frames.
  Expected<void> finish(const PacketHandler& handler);

 private:
  VideoEncoder(const VideoEncoderKind& kind, Options options) : kind_(&kind), options_(std::move(options)) {}

  static Expected<VideoEncoder> openKind(const VideoEncoderKind& kind, const Options& options);
  /// Whether a black frame comes out as a packet: a device that opens may still refuse to encode.
  bool encodesATrialFrame();
  Expected<void> openDevice();
  Expected<void> send(const AVFrame* frame);
  Expected<void> receive(const PacketHandler& handler);

  const VideoEncoderKind* kind_;
  Options options_;
  CodecContext context_;
  Frame frame_;
};

}  // namespace tavrel
