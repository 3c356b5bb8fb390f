#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <optional>

#include "Platform/Foundation/Error.h"
#include "Platform/Media/Private/FFmpegHandles.h"
#include "Platform/Media/Private/Reading/FrameFilter.h"
#include "Platform/Media/Private/Reading/PacketReader.h"

namespace tavrel {

/// Decodes one track of a file, from its start or from where `seek` leads, with its own reading position. One thread at
/// a time.
class TrackDecoder {
 public:
  /// FFmpeg's own decoders for VP8 and VP9 leave alpha out; libvpx's are used where it is wanted.
  enum class Alpha { leftOut, kept };
  enum class Fields { deinterlaced, kept };

  struct Options {
    Alpha alpha = Alpha::leftOut;
    Fields fields = Fields::deinterlaced;
    AssetTrack::Access access = {};
  };

  static Expected<std::unique_ptr<TrackDecoder>> open(const std::filesystem::path& path, int trackID,
                                                      const Options& options);

  /// The next decoded frame in order of presentation, valid until the next call; its `pts` is the time on the asset's
  /// time line in units of `timeBase()`, later than the frame's before, and `pkt_duration` is its length, 0 when
  /// unknown. Interlaced ones are deinterlaced, by libavfilter's bwdif, unless their fields are kept. nullptr at the
  /// end, and when `goOn` answers no.
  /// Damaged packets are skipped; when not one frame could be decoded, the first damage is the error.
  Expected<const AVFrame*> next(const std::function<bool()>& goOn);

  /// Goes on at or before the last picture that can be decoded alone and is shown at `time` or earlier, as far as the
  /// file can say where that is; it may lie behind `time`.
  Expected<void> seek(std::int64_t time);
  /// Goes on from the start.
  Expected<void> rewind();
  /// False where the file is known not to say when its pictures are shown, or to say what they need only in front: then
  /// places after a seek cannot be trusted.
  bool canSeek() const { return canSeek_; }

  /// The frame rate of pictures that follow each other evenly, as the file says; 0 of others.
  AVRational constantRate() const;
  /// Of the file's first picture, where the file says it.
  std::int64_t firstTime() const { return packets_->firstTime(); }

  AVRational timeBase() const { return packets_->stream().time_base; }
  const AVCodecParameters& parameters() const { return *packets_->stream().codecpar; }

 private:
  TrackDecoder() = default;

  Expected<void> openFile(int trackID);
  void startOver();
  const AVCodec* findCodec() const;
  Expected<void> openCodec(const std::filesystem::path& path, const AVCodec* codec);
  Expected<void> deinterlace();
  /// What the deinterlacer has ready; nullptr when it wants more, and without one.
  Expected<const AVFrame*> nextOfFields();
  /// True with a frame in `frame_`, false when the decoder wants data or is at its end.
  bool receive();
  void feed();
  bool place();
  std::int64_t evenTime(std::int64_t time);
  void noteDamage(int code);
  /// What only the file says about how bright pictures are.
  void describe();

  std::filesystem::path path_;
  Options options_;
  std::optional<PacketReader> packets_;
  CodecContext codec_;
  Packet packet_;
  Frame frame_;
  std::unique_ptr<FrameFilter> deinterlacer_;
  Frame following_;
  std::int64_t frameDuration_ = 0;
  std::optional<std::int64_t> lastTime_;
  std::int64_t expectedTime_ = AV_NOPTS_VALUE;
  int doubts_ = 0;
  std::optional<Error> damage_;
  /// After a seek: pictures before the first one that was decoded alone lack what they refer to.
  std::optional<std::int64_t> completeFrom_;
  bool awaitsFirstPacket_ = false;
  bool canSeek_ = true;
  bool flushing_ = false;
  unsigned errorsOfFlush_ = 0;
  bool atEnd_ = false;
  bool hasDecoded_ = false;
};

}  // namespace tavrel
