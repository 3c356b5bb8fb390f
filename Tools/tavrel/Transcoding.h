#pragma once

#include <atomic>
#include <memory>
#include <optional>
#include <string>

#include "Diagnostics.h"
#include "InputMovie.h"
#include "Interruption.h"
#include "Report.h"
#include "TavrelCaptureBase.h"
#include "TrackStreams.h"

namespace tavrel::tool {

/// Transcodes a movie: movie → upright → effects → crop to the new proportions → movie writer, which pulls. The new
/// file appears when it is complete.
class Transcoding {
 public:
  Transcoding(TranscodingOptions options, InputMovie movie, TavrelCaptureEffectChain effects);

  /// Runs to the end, or until the user interrupts or a file fails. Returns the exit status.
  int run(bool printJson, Diagnostics& diagnostics);

 private:
  class FrameCounter;
  class PartOfMovie;

  /// Sound and subtitles, which the graph does not take.
  void addOtherTracks();
  /// Gives the file the next sample of these that is due up to `seconds`, or waits a while for room. False without one.
  bool passOtherTracks(double seconds);
  void buildGraph();
  void work(const Interruption& interruption);
  bool isBrokenOff() const;
  /// Nothing if the movie was written, else why not.
  std::optional<std::string> finish(const Interruption& interruption);
  int report(bool printJson, Diagnostics& diagnostics) const;

  const TranscodingOptions options_;
  const InputMovie input_;
  TavrelCaptureEffectChain effects_;
  std::shared_ptr<TavrelGPUImageMovie> movie_;
  std::shared_ptr<FrameCounter> frameCounter_;
  std::shared_ptr<TavrelGPUImageMovieWriter> writer_;
  std::shared_ptr<AssetReader> otherReader_;
  std::optional<TrackStreams> otherTracks_;
  std::optional<std::string> refusal_;
  std::atomic<bool> isOver_ = false;
};

}  // namespace tavrel::tool
