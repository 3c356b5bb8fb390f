#pragma once

#include <cstddef>
#include <memory>
#include <vector>

#include "GPUImage/TavrelGPUImageAudioTarget.h"
#include "Platform/Media/AssetReader.h"
#include "Platform/Media/SampleBuffer.h"

namespace tavrel {

/// One reading of a movie, forwards or backwards: its reader and the reader's outputs.
///
/// Backwards the movie is decoded once more beforehand, for the times of its pictures, and each picture is then looked
/// for by its time. Pictures belong to one thread at a time, sound to another.
class MoviePass {
 public:
  /// Takes the outputs of `reader`, which must be one, but does not read yet. `soundTarget` may be none.
  MoviePass(std::shared_ptr<AssetReader> reader, std::weak_ptr<TavrelGPUImageAudioTarget> soundTarget, bool isReversed);

  /// False when reading cannot begin.
  bool start();
  AssetReader& reader() const { return *reader_; }
  AssetReaderStatus status() const { return reader_->status(); }
  bool isReading() const { return status() == AssetReaderStatus::reading; }
  bool hasPictures() const { return videoOutput_ != nullptr; }
  /// Whether there is sound, and somebody to take it.
  bool hasSound() const { return audioOutput_ && !soundTarget_.expired(); }
  /// False without another sample.
  bool giveNextSound() const;

  /// True behind the last picture of a movie that is read backwards, whose reader thereby knows that no more will be
  /// asked of it.
  bool endsReversed();
  /// nullptr without another one.
  std::shared_ptr<SampleBuffer> copyNextPicture();
  /// The time with which this picture, the next one, enters the graph. Backwards, times are those of the movie in
  /// order.
  MediaTime takeTimeOf(const SampleBuffer& picture);

 private:
  std::shared_ptr<SampleBuffer> copyReversedPicture();

  const std::shared_ptr<AssetReader> reader_;
  const std::weak_ptr<TavrelGPUImageAudioTarget> soundTarget_;  // often the writer whose callbacks keep this pass
  const bool isReversed_;
  std::shared_ptr<AssetReaderOutput> videoOutput_;
  std::shared_ptr<AssetReaderOutput> audioOutput_;
  std::vector<MediaTime> videoPts_;  // backwards: of every picture, in the order of the file
  std::size_t currentIndex_ = 0;
};

}  // namespace tavrel
