#pragma once

#include <memory>
#include <mutex>
#include <vector>

#include "Platform/Media/Asset.h"

namespace tavrel {

/// An editable track of segments of other tracks. Readers use the track as it is when they are created. Any thread.
class TAVREL_API MutableCompositionTrack {
 public:
  MutableCompositionTrack(int trackID, MediaType mediaType) : trackID_(trackID), mediaType_(mediaType) {}

  int trackID() const { return trackID_; }
  MediaType mediaType() const { return mediaType_; }
  /// Contiguous from 0.
  std::vector<AssetTrackSegment> segments() const;
  MediaTime duration() const;
  AffineTransform preferredTransform() const;
  /// By default the first segment's.
  void setPreferredTransform(const AffineTransform& transform);

  /// Inserts `range` of `track` at `time`, shifting what follows back. A gap before `time` becomes empty. Fails
  /// (`MediaErrorCode::invalidArgument`) if the track has another media type, a time is negative or not numeric, or the
  /// range is empty.
  Expected<void> insertTimeRange(const MediaTimeRange& range, const std::shared_ptr<const AssetTrack>& track,
                                 MediaTime time);
  /// Inserts an empty range, shifting what follows back. Has no effect at or beyond the end.
  void insertEmptyTimeRange(const MediaTimeRange& range);
  /// Removes the range, shifting what follows forward.
  void removeTimeRange(const MediaTimeRange& range);
  /// Slows or speeds up the range to last `toDuration`, shifting what follows.
  void scaleTimeRange(const MediaTimeRange& range, MediaTime toDuration);

  /// An immutable copy of the present track.
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

/// An asset composed of segments of other assets' tracks, without copying media. Any thread.
class TAVREL_API Composition : public Asset {
 public:
  std::vector<std::shared_ptr<const AssetTrack>> tracks() const override;
  MediaTime duration() const override;

 protected:
  Composition() : Asset({}, {}, ValueStatus::loaded) {}

  mutable std::mutex compositionMutex_;
  std::vector<std::shared_ptr<MutableCompositionTrack>> compositionTracks_;
};

/// An editable composition.
class TAVREL_API MutableComposition : public Composition {
 public:
  static std::shared_ptr<MutableComposition> create();

  /// Adds an empty track. Track IDs count from 1.
  std::shared_ptr<MutableCompositionTrack> addMutableTrack(MediaType mediaType);
  void removeTrack(const std::shared_ptr<MutableCompositionTrack>& track);

  /// Apply the operations of the same names to all tracks. Insertion adds tracks if `asset` has more. Fails as the
  /// track's.
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
