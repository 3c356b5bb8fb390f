#pragma once

#include <filesystem>
#include <memory>
#include <string>
#include <vector>

#include "Diagnostics.h"
#include "Interruption.h"
#include "Report.h"
#include "TavrelCaptureBase.h"

namespace tavrel::tool {

/// Puts a movie's pictures, as they are stored, and its sound into a file of another type. The new file appears when it
/// is complete.
class MovieCopy {
 public:
  struct Options {
    std::filesystem::path input;
    std::filesystem::path output;
    std::string fileType;
    bool hasSound = true;
    bool isFragmented = false;
  };

  explicit MovieCopy(Options options) : options_(std::move(options)) {}

  /// Runs to the end, or until the user interrupts or a file fails. Returns the exit status.
  int run(bool printJson, Diagnostics& diagnostics);

 private:
  struct Stream {
    std::shared_ptr<AssetReaderTrackOutput> source;
    std::shared_ptr<AssetWriterInput> destination;
    std::shared_ptr<SampleBuffer> next;

    /// When the next sample is decoded.
    double time() const;
    void advance();
  };

  /// Why the tracks cannot be copied; nothing when they can.
  std::optional<std::string> open();
  std::optional<std::string> addStream(const std::shared_ptr<const AssetTrack>& track,
                                       std::optional<Dictionary> settings);
  std::optional<std::string> copy(const Interruption& interruption);

  const Options options_;
  std::shared_ptr<Asset> asset_;
  std::shared_ptr<AssetReader> reader_;
  std::shared_ptr<AssetWriter> writer_;
  std::vector<Stream> streams_;
  Size size_;
  const char* soundTreatment_ = "none";
  double end_ = 0;
};

}  // namespace tavrel::tool
