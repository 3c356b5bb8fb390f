#pragma once

#include <cstdint>
#include <limits>
#include <optional>
#include <vector>

#include "Platform/Media/Private/FFmpegHandles.h"

namespace tavrel {

/// Whether a time stamp is none of damage; there is room to convert it.
constexpr bool isSane(std::int64_t time) {
  constexpr std::int64_t kLatestTime = std::numeric_limits<std::int64_t>::max() / (std::int64_t{1} << 20);
  return time > -kLatestTime && time < kLatestTime;
}

/// Puts a file's packets on the asset's time line, which begins at 0.
///
/// The clock of a transport or program stream may jump: broadcasts are cut, recordings are strung together. A packet
/// more than 10 s away from where its track should go on, or more than 0.1 s before that, shows a jump, and what
/// follows goes on without one, in all tracks alike. So it does where one movie follows another in a Matroska file. One
/// thread at a time.
class MovieClock {
 public:
  explicit MovieClock(const AVFormatContext& file);

  /// Whether all of a file's packets have to be stamped, in the order of the file, to know the time of one.
  bool needsEveryPacket() const { return mayJump_ || isJoined_; }
  /// Whether the file is made up of several movies.
  bool isJoined() const { return isJoined_; }
  void stamp(AVPacket& packet);
  bool hasJumped() const { return hasJumped_; }
  /// A time of the asset in the track's own units and clock, as far as that has not jumped.
  std::int64_t storedTime(std::int64_t time, const AVStream& stream) const;
  /// The next packet follows on no other.
  void startAnew();

 private:
  struct Track {
    std::optional<std::int64_t> last;  // microseconds
    std::int64_t expected = 0;
  };

  void repair(const AVPacket& packet);
  void join(const AVPacket& packet);

  const AVFormatContext& file_;
  const bool mayJump_;
  bool isJoined_ = false;
  std::vector<std::int64_t> joins_;  // where later movies begin in the file, the last one first
  std::int64_t end_ = 0;             // of all that came, with joins
  std::int64_t correction_;          // what is added, in microseconds
  std::optional<std::int64_t> lastOfAll_;
  std::vector<Track> tracks_;
  bool hasJumped_ = false;
};

}  // namespace tavrel
