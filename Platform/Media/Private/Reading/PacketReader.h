#pragma once

#include <filesystem>

#include "Platform/Foundation/Error.h"
#include "Platform/Media/AssetTrack.h"
#include "Platform/Media/Private/Reading/MovieClock.h"

namespace tavrel {

/// The packets of one track of a file, with their times on the asset's time line. One thread at a time.
class PacketReader {
 public:
  static Expected<PacketReader> open(const std::filesystem::path& path, int trackID, const AssetTrack::Access& access);

  enum class Step { packet, otherTrack, end };
  /// One step through the file. At the end, `error()` tells whether it broke off.
  Step read(AVPacket& packet);
  /// FFmpeg's error code; AVERROR_EOF for the file's own end.
  int error() const { return error_; }
  /// Goes to what is decoded at `time`, in units of the track, or before. False where the file does not find it.
  bool seek(std::int64_t time);
  /// False where the file's clock is known to jump: then its places cannot be told from times.
  bool canSeek() const { return access_.canSeek && !clock_.hasJumped(); }

  /// As it is known by now.
  AssetTrack::Access access() const { return {canSeek(), access_.searchedBytes}; }

  /// Whether the file is made up of several movies; the later ones' times of decoding are none.
  bool isJoined() const { return clock_.isJoined(); }

  /// Of the track's first packet to be shown, in units of the track; 0 where the file does not say it.
  std::int64_t firstTime() const;

  AVFormatContext& file() const { return *file_; }
  AVStream& stream() const { return *file_->streams[trackID_]; }

 private:
  PacketReader(InputFormat file, int trackID, const AssetTrack::Access& access)
      : file_(std::move(file)), clock_(*file_), trackID_(trackID), access_(access) {}

  InputFormat file_;
  MovieClock clock_;
  int trackID_;
  AssetTrack::Access access_;
  int error_ = 0;
};

}  // namespace tavrel
