#pragma once

#include <memory>

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"
#include "Platform/Media/MediaType.h"

namespace tavrel {

class AssetReader;
class SampleBuffer;

/// One stream of samples that an `AssetReader` decodes on demand. One thread at a time for each output; different
/// outputs of one reader may be read on different threads.
class TAVREL_API AssetReaderOutput {
 public:
  virtual ~AssetReaderOutput() = default;

  virtual MediaType mediaType() const = 0;
  /// The next sample in order of presentation; decodes on the calling thread. nullptr at the end, after an error (the
  /// reader's status tells which) and unless the reader is reading.
  virtual std::shared_ptr<SampleBuffer> copyNextSampleBuffer() = 0;

 protected:
  friend class AssetReader;
  /// Opens what it reads from. Called once, when `reader` starts to read; `reader` owns the output.
  virtual Expected<void> prepare(const std::shared_ptr<AssetReader>& reader) = 0;

 private:
  bool isTaken_ = false;
};

}  // namespace tavrel
