#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Foundation/Error.h"
#include "Platform/Media/Private/Writing/VideoEncoderKind.h"
#include "Platform/Media/VideoEncoderInfo.h"

namespace tavrel {

/// An open video encoder of libavcodec: the first that opens of those that the machine has, hardware before software,
/// or the one that the settings name. One thread at a time.
class VideoEncoder {
 public:
  using PacketHandler = std::function<void(Packet)>;

  static Expected<VideoEncoder> open(const VideoEncoderOptions& options);
  /// The same with encoders that need no device, because one has failed.
  static Expected<VideoEncoder> openSuccessor(VideoEncoderOptions options);
  /// Whether an encoder for these settings is built in and has its device.
  static Expected<void> check(const VideoSettings& settings);
  /// Those that open, each on each of its devices.
  static std::vector<VideoEncoderInfo> list();

  const VideoEncoderOptions& options() const { return options_; }
  const VideoEncoderKind& kind() const { return *attempt_.kind; }
  CodecParameters parameters() const;
  /// How many frames a picture may be stored behind later ones.
  int reordering() const { return context_->has_b_frames; }
  /// How many frames it keeps before it hands one on, in a live recording.
  int liveDelay() const;
  /// A frame to fill, of the right size, format and colours; valid until the next call.
  Expected<AVFrame*> writableFrame();
  /// Encodes `writableFrame`'s picture at `time`, in units of the time base; hands on the packets that became ready.
  Expected<void> encode(std::int64_t time, const PacketHandler& handler,
                        AVFieldOrder fieldOrder = AV_FIELD_PROGRESSIVE);
  /// Hands on what the encoder still holds. It takes no more frames.
  Expected<void> finish(const PacketHandler& handler);

 private:
  VideoEncoder(VideoEncoderAttempt attempt, VideoEncoderOptions options)
      : attempt_(std::move(attempt)), options_(std::move(options)) {}

  static Expected<VideoEncoder> openFirst(const std::vector<VideoEncoderAttempt>& attempts,
                                          const VideoEncoderOptions& options);
  static Expected<VideoEncoder> openAttempt(const VideoEncoderAttempt& attempt, const VideoEncoderOptions& options);
  void describe(AVCodecContext& context) const;
  /// Whether it can say that pictures are of two fields.
  bool codesFields() const { return kind().name == std::string_view("libx264"); }
  /// Whether a picture in colour comes out as a packet: a device that opens may still refuse to encode.
  bool encodesATrialFrame();
  void keepHeaders(const AVPacket& packet);
  Expected<void> openDevice();
  Expected<void> send(const AVFrame* frame);
  Expected<void> receive(const PacketHandler& handler);

  VideoEncoderAttempt attempt_;
  VideoEncoderOptions options_;
  CodecContext context_;
  Frame frame_;
  std::vector<std::uint8_t> headers_;  // of a device that has them in its packets only
};

}  // namespace tavrel
