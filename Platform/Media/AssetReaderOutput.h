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

/// One stream of samples that an `AssetReader` reads on demand. One thread at a time for each output; different outputs
/// of one reader may be read on different threads.
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
  /// The next sample in order of presentation (stored packets: in the file's order); decodes on the calling thread.
  /// nullptr at the end of what is being read, after an error (the reader's status tells which) and unless the reader
  /// is reading.
  std::shared_ptr<SampleBuffer> copyNextSampleBuffer();

  /// Kept for the caller; samples are never shared with what the output still works on.
  bool alwaysCopiesSampleData() const { return alwaysCopiesSampleData_; }
  void setAlwaysCopiesSampleData(bool newValue) { alwaysCopiesSampleData_ = newValue; }

  /// With random access, ranges can be read in any order; the output then keeps decoded pictures, at most 512 MiB, and
  /// its end counts only once the configuration is final. Before reading starts, else the program stops.
  bool supportsRandomAccess() const { return supportsRandomAccess_; }
  void setSupportsRandomAccess(bool newValue);
  /// Reads these ranges next, one after the other: pictures whose time lies in a range, sound cut to it. The output
  /// must support random access and be drained, else the program stops. Ranges that begin at no numeric time are left
  /// out. No effect once final.
  void resetForReadingTimeRanges(std::vector<MediaTimeRange> timeRanges);
  /// No further reset will come: when it is drained, the output has ended.
  void markConfigurationAsFinal();

 protected:
  AssetReaderOutput();

  /// Opens what it reads from. Called once, when `reader` starts to read.
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
