#pragma once

#include <memory>
#include <vector>

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"
#include "Platform/Media/MediaTime.h"
#include "Platform/Media/MediaType.h"

namespace tavrel {

class AssetReader;
class SampleBuffer;
class SampleReader;

/// A stream of samples that an `AssetReader` reads on demand. One thread at a time; different outputs of one reader may
/// be read on different threads.
///
///     reading ──no more samples──▶ drained ──without random access, or final──▶ ended
///        ▲                            │
///        └──resetForReadingTimeRanges─┘   (random access only)
class TAVREL_API AssetReaderOutput {
 public:
  AssetReaderOutput(const AssetReaderOutput&) = delete;
  AssetReaderOutput& operator=(const AssetReaderOutput&) = delete;
  virtual ~AssetReaderOutput();

  virtual MediaType mediaType() const = 0;
  /// The next sample in presentation order (stored packets: in file order); decodes on the calling thread. nullptr at
  /// the end, after an error (the reader's status tells) and unless the reader is reading.
  std::shared_ptr<SampleBuffer> copyNextSampleBuffer();

  /// Has no effect: samples are never shared with the output.
  bool alwaysCopiesSampleData() const { return alwaysCopiesSampleData_; }
  void setAlwaysCopiesSampleData(bool newValue) { alwaysCopiesSampleData_ = newValue; }

  /// With random access, time ranges can be read in any order. The output then caches up to 512 MiB of decoded frames
  /// and ends only once the configuration is final. Set before reading starts, else the program stops.
  bool supportsRandomAccess() const { return supportsRandomAccess_; }
  void setSupportsRandomAccess(bool newValue);
  /// Reads these ranges next, in order: frames whose time lies in a range, audio cut to it. The output must support
  /// random access and be drained, else the program stops. Ranges without a numeric start are skipped. Has no effect
  /// once final.
  void resetForReadingTimeRanges(std::vector<MediaTimeRange> timeRanges);
  /// Announces that no reset follows: the output ends when drained.
  void markConfigurationAsFinal();

 protected:
  AssetReaderOutput();

  /// Opens the reader's source. Called once, when `reader` starts.
  virtual Expected<std::unique_ptr<SampleReader>> open(const AssetReader& reader) = 0;

 private:
  friend class AssetReader;
  Expected<void> prepare(const std::shared_ptr<AssetReader>& reader);
  Expected<std::shared_ptr<SampleBuffer>> next(const AssetReader& reader);
  void endIfOver();

  bool isTaken_ = false;
  bool alwaysCopiesSampleData_ = true;
  bool supportsRandomAccess_ = false;
  std::weak_ptr<AssetReader> reader_;
  std::unique_ptr<SampleReader> samples_;
  std::vector<MediaTimeRange> ranges_;  // still to be read, the next one last
  bool isDrained_ = false;
  bool isFinal_ = false;
  bool hasEnded_ = false;
};

}  // namespace tavrel
