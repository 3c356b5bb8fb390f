#pragma once

#include <chrono>
#include <cstdint>
#include <deque>
#include <filesystem>
#include <memory>
#include <mutex>
#include <optional>
#include <vector>

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Geometry.h"
#include "Platform/Media/MediaTime.h"
#include "Platform/Media/MediaType.h"
#include "Platform/Media/MetadataItem.h"
#include "Platform/Media/Private/FFmpegHandles.h"
#include "Platform/Media/Private/Writing/MovieMuxer.h"

namespace tavrel {

/// A movie file that plays at every moment: a header as soon as every track's format is known for good, or soon after
/// the first sample of any, then fragments (QuickTime, MP4) or clusters (Matroska), each handed to the kernel when
/// complete.
///
/// Samples lie in the file in the order in which they are played, as far as no track keeps the others waiting. A
/// finished QuickTime or MP4 file is a regular one, unless its settings say otherwise.
///
/// After the first failure every write fails with the same error, and the file keeps what was complete. What writes is
/// called by one thread at a time; what is said to be for any thread never waits for a write.
class MovieFile {
 public:
  struct Settings {
    MediaTime fragmentInterval;
    bool staysFragmented = false;
    MediaTime indexRoom;  // in front, for a recording that is so long
    MovieContents contents;
    bool appearsWhenComplete = false;  ///< else with the first fragment
  };

  static Expected<std::unique_ptr<MovieFile>> open(const std::filesystem::path& path, std::string_view fileType);

  MovieFile(const MovieFile&) = delete;
  MovieFile& operator=(const MovieFile&) = delete;
  ~MovieFile();

  const MovieContainer& container() const { return muxer_.container(); }

  /// Tracks are added before `begin`. One without a format in time is left out of the file after 1 s of a recording, 10
  /// s of other work.
  int addTrack(MediaType mediaType, const TrackDescription& description, bool isRealTime);
  Expected<void> begin(Settings settings);

  /// Says what the track's packets are; `isFinal` unless the first sample may still change it. False once the header is
  /// written: the track keeps the format it had. Any thread.
  bool setFormat(int track, const TrackFormat& format, bool isFinal);
  /// False when the header was written before the track had a format. Any thread.
  bool hasTrack(int track) const;
  /// What an encoder holds is not in the file: its fragments get shorter by as much, to half their length. Before
  /// `begin`.
  void setEncoderDelay(double seconds) { encoderDelay_ = seconds; }
  /// The first sample was handed to a track: the time for the header runs. Any thread.
  void noteFirstSample();
  /// Takes a packet whose times are in the track's time base; dts never decreases.
  Expected<void> write(int track, Packet packet);
  /// No packets follow: nobody waits for the track any more.
  void endTrack(int track);
  /// Does what is due by the clock: header, fragment. Call it some times a second.
  Expected<void> tick();

  /// Writes what is left and closes the file. Fails (`MediaErrorCode::emptyMovie`) without a sample.
  Expected<void> finish();
  /// Whether anything was written, be it in the file or on its way there.
  bool hasSamples() const;
  /// Closes the file after the last complete fragment; removes it when there is none.
  void abandon();
  void remove();

  /// The end of the shortest track that is safely in the file. Any thread.
  MediaTime writtenUntil() const;
  /// How many samples of this kind are safely in the file. Any thread.
  std::uint64_t writtenSamples(MediaType mediaType) const;

 private:
  using Clock = std::chrono::steady_clock;

  struct Waiting {
    Packet packet;
    Clock::time_point since;
  };

  struct Track {
    MovieMuxer::Stream format;
    bool isRealTime = true;
    std::chrono::milliseconds formatPatience;
    std::optional<std::size_t> stream;  // of the muxer, once there is a header
    Packet held;                        // waits for the next one, which tells its duration
    std::deque<Waiting> waiting;        // for the header, and for what comes before it in other tracks
    std::int64_t lastDuration = 0;
    std::int64_t lastDts = 0;
    std::uint64_t queuedSamples = 0;   // in the muxer
    std::uint64_t writtenSamples = 0;  // in the file
    bool isFormatFinal = false;
    bool isCopied = false;  // its packets were made elsewhere
    bool hasEnded = false;
    std::optional<double> queuedEnd;  // seconds, in the muxer
    double writtenEnd = 0;            // seconds, in the file
    bool isInFile = false;

    bool isSubtitle() const { return format.mediaType == MediaType::subtitle; }
    double secondsAt(std::int64_t units) const { return static_cast<double>(units) * av_q2d(format.timeBase); }
  };

  MovieFile(std::unique_ptr<MovieFileOutput> output, MovieContainer container);

  Expected<void> noted(Expected<void> result);
  /// Whether it is time for the header; then the tracks' formats stay as they are.
  bool fixFormatsWhenDue();
  Expected<void> writeHeader();
  void release(Track& track, std::int64_t duration);
  void releaseHeld(bool isLast);
  /// Those whose turn it is, or all.
  Expected<void> writeWaiting(bool all);
  Track* nextToWrite();
  bool isTurnOf(const Track& track) const;
  Expected<void> mux(Track& track, Packet packet);
  bool isFirstFragmentDue(const Track& track) const;
  Expected<void> flushFragment();
  /// Fails if a track that was copied is not found in the file: its coding may be damaged in a way that the one
  /// container hides and the other does not.
  Expected<void> checkCopies();
  double fragmentSeconds() const;

  MovieMuxer muxer_;

  // Guards the tracks' formats and how far they are written; never held over a write.
  mutable std::mutex mutex_;
  bool areFormatsFixed_ = false;
  std::optional<Clock::time_point> firstSample_;

  Settings settings_;
  std::vector<Track> tracks_;
  std::int64_t waitingBytes_ = 0;
  double encoderDelay_ = 0;
  bool hasBegun_ = false;
  bool isHeaderWritten_ = false;
  bool isClosed_ = false;
  Clock::time_point lastFlush_;
  bool hasUnflushed_ = false;
  bool hasFragments_ = false;
  double fragmentStart_ = 0;
  std::optional<Error> error_;
};

}  // namespace tavrel
