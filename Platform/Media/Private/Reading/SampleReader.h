#pragma once

#include <functional>
#include <memory>
#include <optional>

#include "Platform/Foundation/Error.h"
#include "Platform/Graphics/PixelFormat.h"
#include "Platform/Media/AssetTrack.h"
#include "Platform/Media/SampleBuffer.h"

namespace tavrel {

/// Whether reading should go on; asked between steps of long work.
using GoOn = std::function<bool()>;

/// Samples in order of presentation, read on demand. One thread at a time.
class SampleReader {
 public:
  virtual ~SampleReader() = default;

  /// nullptr at the end of what was asked for, and when `goOn` answers no.
  virtual Expected<std::shared_ptr<SampleBuffer>> next(const GoOn& goOn) = 0;
  /// Goes on with the pictures that begin in `range`, or with the sound in it. With `withShownAtStart`, the picture
  /// that is being shown when the range begins comes first, with its own time.
  virtual Expected<void> seek(const MediaTimeRange& range, bool withShownAtStart) = 0;
};

/// In which form a track's samples are wanted.
struct SampleForm {
  bool isStored = false;  ///< as they lie in the file; PCM stays PCM
  PixelFormat pixelFormat = PixelFormat::bgra32;
  bool allowsPlanes = false;               ///< of 4:2:0 instead, where they are all that was decoded
  bool keepsFields = false;                ///< interlaced pictures as they are
  std::optional<AudioFormat> audioFormat;  ///< interleaved; the track's rate and channels in 32-bit float when absent
  bool isRandomAccess = false;             ///< `seek` will be called often, with ranges in any order
};

/// Opens a track of a file or of a composition. `assetPath` is that of the file when the track does not know it.
Expected<std::unique_ptr<SampleReader>> openTrack(const AssetTrack& track, const SampleForm& form,
                                                  const std::filesystem::path& assetPath = {});

/// The PCM that a track's sound is decoded to where nothing else is asked for.
AudioFormat decodedFormat(const AssetTrack& track);

}  // namespace tavrel
