#pragma once

#include <optional>

extern "C" {
#include <libavutil/audio_fifo.h>
}

#include "Platform/Foundation/Dictionary.h"
#include "Platform/Media/Private/Writing/AudioConverter.h"
#include "Platform/Media/Private/Writing/PacketDecoder.h"
#include "Platform/Media/Private/Writing/TrackEncoder.h"

namespace tavrel {

/// An audio track's settings, checked.
struct AudioSettings {
  AVCodecID codec = AV_CODEC_ID_AAC;
  int sampleRate = 48000;
  int channelCount = 1;
  std::int64_t bitRate = 64000;

  static Expected<AudioSettings> parse(const Dictionary& settings);
};

/// PCM, or sound of another coding, to an audio track: continuity, conversion, encoding. Each sample buffer is placed
/// on the movie's time line: an overlap is cut, a gap filled with silence. What deviates less than 5 ms is joined as it
/// comes, and stretched by a frame at a time until the deviation is gone.
///
/// In real time, sound is stamped when it arrives: late when its receiver was busy, and what comes next is in time
/// again. There, what is less than 0.4 s late is joined as it comes too, and only what stays late for half a second has
/// a gap, which is filled then, or drifts, and is stretched then.
class AudioTrackEncoder final : public TrackEncoder {
 public:
  /// AAC with these settings.
  explicit AudioTrackEncoder(AudioSettings settings) : settings_(settings) {}
  /// PCM stored in the format of the first sample.
  explicit AudioTrackEncoder(const AudioFormat& format) : storedFormat_(format) {}

  /// The coding that PCM of this format is stored in.
  static AVCodecID storedCodec(const AudioFormat& format);

  Expected<void> check(const MovieFile& file) const override;
  Expected<void> open(TrackOutput output, bool isRealTime) override;
  Expected<void> encode(const TrackSample& sample) override;
  Expected<void> finish() override;

 private:
  AVCodecID codec() const;
  struct FifoDeleter {
    void operator()(AVAudioFifo* fifo) const { av_audio_fifo_free(fifo); }
  };

  std::int64_t position() const;
  std::int64_t lastingDeviation(std::int64_t deviation, std::int64_t frames);
  Expected<void> encodePacket(const TrackSample& sample);
  Expected<void> encodePieces(const Expected<std::vector<std::shared_ptr<SampleBuffer>>>& pieces);
  Expected<void> useFormat(const AudioFormat& format);
  Expected<void> addSilence(std::int64_t frames);
  Expected<void> take(const AudioConverter::Output& converted);
  Expected<void> encodeWaiting(bool isLast);
  Expected<void> encodeFrames(int frames);
  Expected<void> receive();

  AudioSettings settings_;
  std::optional<AudioFormat> storedFormat_;
  TrackOutput output_;
  bool isRealTime_ = false;
  CodecContext context_;
  std::optional<PacketDecoder> decoder_;
  std::optional<AudioConverter> converter_;
  std::unique_ptr<AVAudioFifo, FifoDeleter> fifo_;
  Frame frame_;
  std::int64_t convertedFrames_ = 0;  // everything that came out of the converters
  std::int64_t encodedFrames_ = 0;
  std::int64_t lateFrames_ = 0;  // since sound was last in time
  std::int64_t leastLateness_ = 0;
};

}  // namespace tavrel
