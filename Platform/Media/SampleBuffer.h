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

/// When a sample is shown, and for how long.
struct SampleTiming {
  MediaTime duration;  ///< of one sample; invalid when unknown
  MediaTime presentationTimeStamp;
  MediaTime decodeTimeStamp;  ///< invalid when it is the presentation time
};

/// Timed media on its way through the program: PCM sound, one compressed packet, or one picture.
///
/// Copies with new timing share the data. Any thread; the data itself is not locked.
class TAVREL_API SampleBuffer {
 public:
  /// PCM that lies in `data`, whose buffers hold at least `frameCount` frames of `format`, the first one at
  /// `presentationTimeStamp`. Fails (`MediaErrorCode::invalidArgument`) when they are too small, the format is not
  /// usable or the time not numeric.
  static Expected<std::shared_ptr<SampleBuffer>> createAudio(const AudioFormat& format,
                                                             std::shared_ptr<AudioBufferList> data,
                                                             std::int64_t frameCount, MediaTime presentationTimeStamp);
  /// One compressed packet. Fails (`MediaErrorCode::invalidArgument`) unless the format names a codec and there are
  /// bytes.
  static Expected<std::shared_ptr<SampleBuffer>> createPacket(std::shared_ptr<const FormatDescription> format,
                                                              Data bytes, const SampleTiming& timing,
                                                              bool isKeyframe = true);
  /// One picture, which is shared, not copied. Fails (`MediaErrorCode::invalidArgument`) without one.
  static Expected<std::shared_ptr<SampleBuffer>> createImage(std::shared_ptr<PixelBuffer> image,
                                                             const SampleTiming& timing);

  /// Makes a picture when it is first asked for, on the thread that asks; nullptr when it cannot.
  using ImageMaker = std::function<std::shared_ptr<PixelBuffer>()>;
  /// One picture of `size` that is made by `maker`, at most once.
  static std::shared_ptr<SampleBuffer> createImage(Size size, ImageMaker maker, const SampleTiming& timing);

  const std::shared_ptr<const FormatDescription>& format() const { return format_; }
  /// PCM frames; 1 for a packet or a picture.
  std::int64_t numSamples() const { return sampleCount_; }
  /// Either one entry, which holds for the first sample and, each a duration later, those after it; or one for each.
  const std::vector<SampleTiming>& timingEntries() const { return timing_; }

  /// Of the first sample.
  MediaTime presentationTimeStamp() const;
  /// Of the first sample once played; the presentation time unless set otherwise.
  MediaTime outputPresentationTimeStamp() const;
  void setOutputPresentationTimeStamp(MediaTime time);
  /// Of all samples together; invalid when unknown.
  MediaTime duration() const;

  /// A buffer of the same data with other times. Fails unless there is one entry or one for each sample
  /// (`MediaErrorCode::invalidArgument`), and when this buffer is not valid any more (`invalidatedSample`).
  Expected<std::shared_ptr<SampleBuffer>> copyWithNewTiming(std::vector<SampleTiming> entries) const;

  /// Lets go of the data; copies and holders of the audio buffer list keep theirs.
  void invalidate();
  bool isValid() const;

  /// The PCM, kept alive by whoever holds the list; nullptr for anything else and once invalidated. A writer of the
  /// bytes changes them for every sharer.
  std::shared_ptr<AudioBufferList> audioBufferList() const;
  /// The compressed bytes; nullptr for anything else and once invalidated.
  std::shared_ptr<const Data> packetData() const;
  bool isKeyframe() const { return isKeyframe_; }
  /// The picture; nullptr for anything else and once invalidated.
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
