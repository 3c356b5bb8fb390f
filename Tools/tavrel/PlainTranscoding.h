#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Diagnostics.h"
#include "InputMovie.h"
#include "Interruption.h"
#include "Report.h"
#include "TavrelCaptureBase.h"

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
  struct Stream {
    std::shared_ptr<AssetReaderTrackOutput> source;
    std::shared_ptr<AssetWriterInput> destination;
    std::shared_ptr<SampleBuffer> next;

    /// When the next sample is decoded.
    double time() const;
    double end() const;
    void advance();
  };

  /// Why the movie cannot be transcoded; nothing when it can.
  std::optional<std::string> open();
  /// Of samples as they are stored without `decoding`; without `encoding` they go into the file as they are.
  std::optional<std::string> addStream(const std::shared_ptr<const AssetTrack>& track,
                                       const std::optional<Dictionary>& decoding, std::optional<Dictionary> encoding);
  std::string notWritten(const Error& error) const;
  std::optional<std::string> addPictures();
  std::optional<std::string> addSound(const std::shared_ptr<const AssetTrack>& sound);
  std::optional<std::string> work(const Interruption& interruption);

  const TranscodingOptions options_;
  const InputMovie movie_;
  std::shared_ptr<AssetReader> reader_;
  std::shared_ptr<AssetWriter> writer_;
  std::vector<Stream> streams_;
  std::string soundTreatment_;
  std::uint64_t picturesRead_ = 0;
  double end_ = 0;
};

}  // namespace tavrel::tool
