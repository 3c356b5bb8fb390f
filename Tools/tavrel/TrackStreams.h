#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "InputMovie.h"
#include "TavrelCaptureBase.h"

namespace tavrel::tool {

/// Tracks on their way from a movie into a writer's file, without drawing, in the order of their times.
class TrackStreams {
 public:
  TrackStreams(const TranscodingOptions& options, std::shared_ptr<AssetReader> reader,
               std::shared_ptr<AssetWriter> writer)
      : options_(options), reader_(std::move(reader)), writer_(std::move(writer)) {}

  /// Samples as they are stored without `decoding`; without `encoding` they go into the file as they are. Returns why
  /// that cannot be; nothing when it can.
  std::optional<std::string> add(const std::shared_ptr<const AssetTrack>& track,
                                 const std::optional<Dictionary>& decoding, std::optional<Dictionary> encoding);
  /// As it is where the file takes it, else encoded anew.
  std::optional<std::string> addSound(const std::shared_ptr<const AssetTrack>& sound);
  bool isEmpty() const { return streams_.empty(); }
  /// What became of the sound: "copied" or "encoded" of each track, or "none".
  std::string soundTreatment() const { return soundTreatment_.empty() ? "none" : soundTreatment_; }
  const std::vector<std::shared_ptr<AssetWriterInput>>& inputs() const { return inputs_; }

  /// Reads each track's first sample.
  void start();
  /// The sample that is decoded next; nullptr at the end of all.
  std::shared_ptr<SampleBuffer> next();
  /// When that is, in seconds.
  double nextTime();
  /// The next one of the track that was added first.
  std::shared_ptr<SampleBuffer> nextOfFirst() const { return streams_.front().next; }
  /// Waits for room, up to `timeout`, and gives the file the next sample. False when there was no room. An error says
  /// which sample cannot be stored.
  Expected<bool> pass(std::chrono::milliseconds timeout);

 private:
  struct Stream {
    std::shared_ptr<AssetReaderTrackOutput> source;
    std::shared_ptr<AssetWriterInput> destination;
    std::shared_ptr<SampleBuffer> next;

    double time() const;
    void advance();
  };

  Stream* earliest();

  const TranscodingOptions& options_;
  const std::shared_ptr<AssetReader> reader_;
  const std::shared_ptr<AssetWriter> writer_;
  std::vector<Stream> streams_;
  std::vector<std::shared_ptr<AssetWriterInput>> inputs_;
  std::string soundTreatment_;
};

}  // namespace tavrel::tool
