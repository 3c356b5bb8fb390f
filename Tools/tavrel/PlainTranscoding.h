#pragma once

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

/// Transcodes a movie without drawing: reader → movie file. Pictures are copied, or encoded anew from the planes that
/// the decoder gives. The new file appears when it is complete.
class PlainTranscoding {
 public:
  PlainTranscoding(TranscodingOptions options, InputMovie movie)
      : options_(std::move(options)), movie_(std::move(movie)) {}

  /// Whether this way leads to the movie that is asked for, where there are no effects.
  static bool serves(const TranscodingOptions& options, const InputMovie& movie);

  /// Runs to the end, or until the user interrupts or a file fails. Returns the exit status.
  int run(bool printJson, Diagnostics& diagnostics);

 private:
  /// Why the movie cannot be transcoded; nothing when it can.
  std::optional<std::string> open();
  std::string notWritten(const Error& error) const;
  std::optional<std::string> addPictures();
  std::optional<std::string> work(const Interruption& interruption);

  const TranscodingOptions options_;
  const InputMovie movie_;
  std::shared_ptr<AssetReader> reader_;
  std::shared_ptr<AssetWriter> writer_;
  std::optional<TrackStreams> streams_;
  std::uint64_t picturesRead_ = 0;
  double end_ = 0;
};

}  // namespace tavrel::tool
