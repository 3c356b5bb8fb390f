#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "Platform/Media/Asset.h"

namespace tavrel {

/// A track of a `MutableComposition`: pieces of other tracks, one behind the other. Readers take the track as it is
/// when they are made. Any thread.
class TAVREL_API MutableCompositionTrack {
 public:
  MutableCompositionTrack(int trackID, MediaType mediaType) : trackID_(trackID), mediaType_(mediaType) {}

  int trackID() const { return trackID_; }
  MediaType mediaType() const { return mediaType_; }
  /// Contiguous from 0.
  std::vector<AssetTrackSegment> segments() const;
  MediaTime duration() const;
  AffineTransform preferredTransform() const;
  /// At first that of the first piece.
  void setPreferredTransform(const AffineTransform& transform);

  /// Plays `range` of `track` at `time`; what was there moves back. Beyond the end the track is empty up to `time`.
  /// Fails (`MediaErrorCode::invalidArgument`) for a track of another type, times that are not numeric or negative, and
  /// an empty range.
  Expected<void> insertTimeRange(const MediaTimeRange& range, const std::shared_ptr<const AssetTrack>& track,
                                 MediaTime time);
  /// Makes room: what lies behind the range's start moves back. No effect at or beyond the end.
  void insertEmptyTimeRange(const MediaTimeRange& range);
  /// Takes the range out; what lies behind it moves forward.
  void removeTimeRange(const MediaTimeRange& range);
  /// Plays the range slower or faster, so that it lasts `toDuration`; what lies behind it moves.
  void scaleTimeRange(const MediaTimeRange& range, MediaTime toDuration);

  /// The track as it is now.
  std::shared_ptr<const AssetTrack> snapshot() const;

 private:
  std::size_t splitAt(MediaTime time);
  void layOut();
  MediaTime end() const;

  const int trackID_;
  const MediaType mediaType_;
  mutable std::mutex mutex_;
  std::vector<AssetTrackSegment> segments_;
  std::optional<AffineTransform> preferredTransform_;
};

/// An asset that is put together from tracks of others, nothing being copied. Any thread.
class TAVREL_API Composition : public Asset {
 public:
  std::vector<std::shared_ptr<const AssetTrack>> tracks() const override;
  MediaTime duration() const override;

 protected:
  Composition() : Asset({}, {}, ValueStatus::loaded) {}

  mutable std::mutex compositionMutex_;
  std::vector<std::shared_ptr<MutableCompositionTrack>> compositionTracks_;
};

/// A composition that can be edited.
class TAVREL_API MutableComposition : public Composition {
 public:
  static std::shared_ptr<MutableComposition> create();

  /// An empty track; their numbers count from 1.
  std::shared_ptr<MutableCompositionTrack> addMutableTrack(MediaType mediaType);
  void removeTrack(const std::shared_ptr<MutableCompositionTrack>& track);

  /// The track's operations on all tracks. Inserting adds the tracks that `asset` has more of. Fails as the track's do.
  Expected<void> insertTimeRange(const MediaTimeRange& range, const Asset& asset, MediaTime time);
  void insertEmptyTimeRange(const MediaTimeRange& range);
  void removeTimeRange(const MediaTimeRange& range);
  void scaleTimeRange(const MediaTimeRange& range, MediaTime toDuration);

 private:
  MutableComposition() = default;
  std::vector<std::shared_ptr<MutableCompositionTrack>> editedTracks() const;

  int nextTrackID_ = 1;
};

}  // namespace tavrel
