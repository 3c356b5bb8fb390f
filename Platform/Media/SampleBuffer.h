#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"
#include "Platform/Media/AudioBufferList.h"
#include "Platform/Media/FormatDescription.h"
#include "Platform/Media/MediaTime.h"

namespace tavrel {

class PixelBuffer;

/// When a sample is presented, and for how long.
struct SampleTiming {
  MediaTime duration;  ///< of one sample; invalid if unknown
  MediaTime presentationTimeStamp;
  MediaTime decodeTimeStamp;  ///< invalid if equal to the presentation time
};

/// Timed media: PCM, one compressed packet, or one video frame.
///
/// Copies with new timing share the data. Any thread; the data itself is not synchronised.
class TAVREL_API SampleBuffer {
 public:
  /// PCM: the first `frameCount` frames of `data`. Fails (`MediaErrorCode::invalidArgument`) if the buffers are too
  /// small, the format is unusable or the time is not numeric.
  static Expected<std::shared_ptr<SampleBuffer>> createAudio(const AudioFormat& format,
                                                             std::shared_ptr<AudioBufferList> data,
                                                             std::int64_t frameCount, MediaTime presentationTimeStamp);
  /// A compressed packet. Fails (`MediaErrorCode::invalidArgument`) if the format names no codec or `bytes` is empty.
  static Expected<std::shared_ptr<SampleBuffer>> createPacket(std::shared_ptr<const FormatDescription> format,
                                                              Data bytes, const SampleTiming& timing,
                                                              bool isKeyframe = true);
  /// A frame, which is shared, not copied. Fails (`MediaErrorCode::invalidArgument`) if it is nullptr.
  static Expected<std::shared_ptr<SampleBuffer>> createImage(std::shared_ptr<PixelBuffer> image,
                                                             const SampleTiming& timing);

  /// Creates the frame on first use, on the calling thread; returns nullptr on failure.
  using ImageMaker = std::function<std::shared_ptr<PixelBuffer>()>;
  /// A frame of `size` that `maker` creates, at most once.
  static std::shared_ptr<SampleBuffer> createImage(Size size, ImageMaker maker, const SampleTiming& timing);

  const std::shared_ptr<const FormatDescription>& format() const { return format_; }
  /// PCM frames; 1 for a packet or video frame.
  std::int64_t numSamples() const { return sampleCount_; }
  /// One entry per sample, or one for all: that of the first sample, each later sample following by the duration.
  const std::vector<SampleTiming>& timingEntries() const { return timing_; }

  /// Of the first sample.
  MediaTime presentationTimeStamp() const;
  /// Of the first sample when played; by default the presentation time.
  MediaTime outputPresentationTimeStamp() const;
  void setOutputPresentationTimeStamp(MediaTime time);
  /// Of all samples together; invalid if unknown.
  MediaTime duration() const;

  /// A buffer that shares the data. Fails unless there is one entry or one per sample
  /// (`MediaErrorCode::invalidArgument`), and if this buffer was invalidated (`invalidatedSample`).
  Expected<std::shared_ptr<SampleBuffer>> copyWithNewTiming(std::vector<SampleTiming> entries) const;

  /// Releases the data; copies and holders of the audio buffer list keep it.
  void invalidate();
  bool isValid() const;

  /// The PCM; nullptr for other media and once invalidated. Changes to the bytes are seen by all holders.
  std::shared_ptr<AudioBufferList> audioBufferList() const;
  /// The compressed bytes; nullptr for other media and once invalidated.
  std::shared_ptr<const Data> packetData() const;
  bool isKeyframe() const { return isKeyframe_; }
  /// The video frame; nullptr for other media and once invalidated.
  std::shared_ptr<PixelBuffer> imageBuffer() const;

 private:
  SampleBuffer(std::shared_ptr<const FormatDescription> format, std::int64_t sampleCount,
               std::vector<SampleTiming> timing);

  std::shared_ptr<const FormatDescription> format_;
  std::int64_t sampleCount_;
  std::vector<SampleTiming> timing_;
  bool isKeyframe_ = true;

  mutable std::mutex mutex_;
  bool isValid_ = true;
  std::optional<MediaTime> outputTime_;
  std::shared_ptr<AudioBufferList> audio_;
  std::shared_ptr<const Data> packet_;
  mutable std::shared_ptr<PixelBuffer> image_;
  mutable ImageMaker imageMaker_;  // until it was called
};

}  // namespace tavrel
