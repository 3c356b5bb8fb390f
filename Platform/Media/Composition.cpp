#include "Platform/Media/Composition.h"
#include "Platform/Foundation/Finite.h"
#include "Platform/Media/MediaError.h"

#include <fmt/format.h>

#include <algorithm>

namespace tavrel {
namespace {

/// Fine enough for the middle of a stretched piece of any movie.
constexpr std::int32_t kStretchedTimescale = 705'600'000;

/// The piece of `whole` between two times of the composition.
AssetTrackSegment part(const AssetTrackSegment& whole, MediaTime begin, MediaTime end) {
  AssetTrackSegment piece = whole;
  piece.target = {begin, end - begin};
  if (whole.isEmpty()) return piece;
  const double stretch = whole.target.duration.seconds() / whole.source.duration.seconds();
  const auto sourceTime = [&](MediaTime time) {
    if (time == whole.target.start) return whole.source.start;
    if (time == whole.target.end()) return whole.source.end();
    const MediaTime into = time - whole.target.start;
    if (whole.source.duration == whole.target.duration) return whole.source.start + into;
    return whole.source.start + MediaTime::fromSeconds(into.seconds() / stretch, kStretchedTimescale);
  };
  piece.source.start = sourceTime(begin);
  piece.source.duration = sourceTime(end) - piece.source.start;
  return piece;
}

bool isUsable(const MediaTimeRange& range) {
  return range.start.isNumeric() && range.duration.isNumeric() && range.start >= MediaTime::zero() &&
         range.duration > MediaTime::zero();
}

}  // namespace

std::vector<AssetTrackSegment> MutableCompositionTrack::segments() const {
  const std::lock_guard lock(mutex_);
  return segments_;
}

MediaTime MutableCompositionTrack::end() const {
  return segments_.empty() ? MediaTime::zero() : segments_.back().target.end();
}

MediaTime MutableCompositionTrack::duration() const {
  const std::lock_guard lock(mutex_);
  return end();
}

AffineTransform MutableCompositionTrack::preferredTransform() const { return snapshot()->preferredTransform(); }

void MutableCompositionTrack::setPreferredTransform(const AffineTransform& transform) {
  if (!isFinite(transform)) return;
  const std::lock_guard lock(mutex_);
  preferredTransform_ = transform;
}

/// Cuts the segment that `time` lies in; the number of segments before it.
std::size_t MutableCompositionTrack::splitAt(MediaTime time) {
  for (std::size_t i = 0; i < segments_.size(); ++i) {
    const AssetTrackSegment whole = segments_[i];
    if (time <= whole.target.start) return i;
    if (time >= whole.target.end()) continue;
    segments_[i] = part(whole, whole.target.start, time);
    segments_.insert(segments_.begin() + static_cast<std::ptrdiff_t>(i) + 1, part(whole, time, whole.target.end()));
    return i + 1;
  }
  return segments_.size();
}

/// Puts the segments one behind the other.
void MutableCompositionTrack::layOut() {
  MediaTime start = MediaTime::zero();
  for (AssetTrackSegment& segment : segments_) {
    segment.target.start = start;
    start = segment.target.end();
  }
}

Expected<void> MutableCompositionTrack::insertTimeRange(const MediaTimeRange& range,
                                                        const std::shared_ptr<const AssetTrack>& track,
                                                        MediaTime time) {
  if (!track || track->mediaType() != mediaType_) {
    return failure(MediaErrorCode::invalidArgument, fmt::format("track {} takes {} only", trackID_,
                                                                mediaType_ == MediaType::video ? "pictures" : "sound"));
  }
  if (!isUsable(range) || !time.isNumeric() || time < MediaTime::zero()) {
    return failure(MediaErrorCode::invalidArgument,
                   fmt::format("{} for {} cannot be inserted at {}", range.start.description(),
                               range.duration.description(), time.description()));
  }
  const std::lock_guard lock(mutex_);
  if (time > end()) segments_.push_back({nullptr, {}, {end(), time - end()}});
  const std::size_t at = splitAt(time);
  segments_.insert(segments_.begin() + static_cast<std::ptrdiff_t>(at), {track, range, {time, range.duration}});
  layOut();
  return {};
}

void MutableCompositionTrack::insertEmptyTimeRange(const MediaTimeRange& range) {
  const std::lock_guard lock(mutex_);
  if (!isUsable(range) || range.start >= end()) return;
  const std::size_t at = splitAt(range.start);
  segments_.insert(segments_.begin() + static_cast<std::ptrdiff_t>(at), {nullptr, {}, range});
  layOut();
}

void MutableCompositionTrack::removeTimeRange(const MediaTimeRange& range) {
  if (!isUsable(range)) return;
  const std::lock_guard lock(mutex_);
  const auto first = static_cast<std::ptrdiff_t>(splitAt(range.start));
  const auto last = static_cast<std::ptrdiff_t>(splitAt(range.end()));
  segments_.erase(segments_.begin() + first, segments_.begin() + last);
  layOut();
}

void MutableCompositionTrack::scaleTimeRange(const MediaTimeRange& range, MediaTime toDuration) {
  if (!isUsable(range) || !toDuration.isNumeric() || !(toDuration > MediaTime::zero())) return;
  const std::lock_guard lock(mutex_);
  const std::size_t first = splitAt(range.start);
  const std::size_t last = splitAt(range.end());
  const double factor = toDuration.seconds() / range.duration.seconds();
  for (std::size_t i = first; i < last; ++i) {
    MediaTime& duration = segments_[i].target.duration;
    duration = last - first == 1 && duration == range.duration
                   ? toDuration
                   : MediaTime::fromSeconds(duration.seconds() * factor, kStretchedTimescale);
  }
  layOut();
}

std::shared_ptr<const AssetTrack> MutableCompositionTrack::snapshot() const {
  const std::lock_guard lock(mutex_);
  AssetTrack::Properties track;
  track.trackID = trackID_;
  track.mediaType = mediaType_;
  track.timeRange = {MediaTime::zero(), end()};
  track.segments = segments_;
  const auto filled =
      std::find_if(segments_.begin(), segments_.end(), [](const auto& segment) { return !segment.isEmpty(); });
  if (filled != segments_.end()) {
    const AssetTrack& first = *filled->track;
    track.codecName = first.codecName();
    track.naturalTimescale = first.naturalTimescale();
    track.naturalSize = first.naturalSize();
    track.preferredTransform = first.preferredTransform();
    track.nominalFrameRate = first.nominalFrameRate();
    track.sampleRate = first.sampleRate();
    track.channelCount = first.channelCount();
  }
  if (preferredTransform_) track.preferredTransform = *preferredTransform_;
  return std::make_shared<const AssetTrack>(std::move(track));
}

std::vector<std::shared_ptr<const AssetTrack>> Composition::tracks() const {
  const std::lock_guard lock(compositionMutex_);
  std::vector<std::shared_ptr<const AssetTrack>> snapshots;
  for (const auto& track : compositionTracks_) snapshots.push_back(track->snapshot());
  return snapshots;
}

MediaTime Composition::duration() const {
  const std::lock_guard lock(compositionMutex_);
  MediaTime end = MediaTime::zero();
  for (const auto& track : compositionTracks_) end = std::max(end, track->duration());
  return end;
}

std::shared_ptr<MutableComposition> MutableComposition::create() {
  return std::shared_ptr<MutableComposition>(new MutableComposition);
}

std::shared_ptr<MutableCompositionTrack> MutableComposition::addMutableTrack(MediaType mediaType) {
  const std::lock_guard lock(compositionMutex_);
  compositionTracks_.push_back(std::make_shared<MutableCompositionTrack>(nextTrackID_++, mediaType));
  return compositionTracks_.back();
}

void MutableComposition::removeTrack(const std::shared_ptr<MutableCompositionTrack>& track) {
  const std::lock_guard lock(compositionMutex_);
  std::erase(compositionTracks_, track);
}

std::vector<std::shared_ptr<MutableCompositionTrack>> MutableComposition::editedTracks() const {
  const std::lock_guard lock(compositionMutex_);
  return compositionTracks_;
}

Expected<void> MutableComposition::insertTimeRange(const MediaTimeRange& range, const Asset& asset, MediaTime time) {
  auto own = editedTracks();
  std::vector<std::shared_ptr<MutableCompositionTrack>> untouched = own;
  for (const auto& track : asset.tracks()) {
    const auto fitting = std::find_if(untouched.begin(), untouched.end(), [&](const auto& candidate) {
      return candidate->mediaType() == track->mediaType();
    });
    std::shared_ptr<MutableCompositionTrack> target;
    if (fitting == untouched.end()) {
      target = addMutableTrack(track->mediaType());
    } else {
      target = *fitting;
      untouched.erase(fitting);
    }
    if (auto inserted = target->insertTimeRange(range, track, time); !inserted) return inserted;
  }
  for (const auto& track : untouched) track->insertEmptyTimeRange({time, range.duration});
  return {};
}

void MutableComposition::insertEmptyTimeRange(const MediaTimeRange& range) {
  for (const auto& track : editedTracks()) track->insertEmptyTimeRange(range);
}

void MutableComposition::removeTimeRange(const MediaTimeRange& range) {
  for (const auto& track : editedTracks()) track->removeTimeRange(range);
}

void MutableComposition::scaleTimeRange(const MediaTimeRange& range, MediaTime toDuration) {
  for (const auto& track : editedTracks()) track->scaleTimeRange(range, toDuration);
}

}  // namespace tavrel
