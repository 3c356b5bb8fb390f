#include "Platform/Media/Private/Composing/SegmentTrackReader.h"

#include <algorithm>
#include <cmath>

#include "Platform/Media/Private/Reading/SoundTrackReader.h"

namespace tavrel {
namespace {

/// Fine enough for stretched times of any movie: the least common multiple of the usual rates.
constexpr std::int32_t kStretchedTimescale = 705'600'000;

}  // namespace

SegmentTrackReader::SegmentTrackReader(const AssetTrack& track, const SampleForm& form)
    : segments_(track.segments()), mediaType_(track.mediaType()), form_(form) {
  form_.isStored = false;
  if (mediaType_ == MediaType::audio && !form_.audioFormat) form_.audioFormat = decodedFormat(track);
}

double SegmentTrackReader::stretch() const {
  const double source = segment().source.duration.seconds();
  return source > 0 ? segment().target.duration.seconds() / source : 1;
}

MediaTime SegmentTrackReader::placed(MediaTime sourceTime) const {
  const AssetTrackSegment& at = segment();
  if (at.source.duration == at.target.duration) return at.target.start + (sourceTime - at.source.start);
  const double seconds = (sourceTime - at.source.start).seconds() * stretch();
  return at.target.start + MediaTime::fromSeconds(seconds, kStretchedTimescale);
}

Expected<void> SegmentTrackReader::openSegment() {
  const AssetTrackSegment& at = segment();
  if (!reader_ || readerIndex_ != index_) {
    auto opened = openTrack(*at.track, form_);
    if (!opened) return tl::unexpected(opened.error());
    reader_ = std::move(*opened);
    readerIndex_ = index_;
  }
  // The part of the segment that is asked for, on its own time line.
  const MediaTime begin = std::max(range_.start, at.target.start);
  MediaTimeRange source = at.source;
  if (begin > at.target.start) {
    const double into = (begin - at.target.start).seconds() / stretch();
    source.start = at.source.duration == at.target.duration
                       ? at.source.start + (begin - at.target.start)
                       : at.source.start + MediaTime::fromSeconds(into, kStretchedTimescale);
    source.duration = at.source.end() - source.start;
  }
  return reader_->seek(source, begin == at.target.start || wantsShownAtStart_);
}

Expected<std::shared_ptr<SampleBuffer>> SegmentTrackReader::next(const GoOn& goOn) {
  for (; index_ < segments_.size(); ++index_, reader_.reset()) {
    const bool isWanted = segment().target.end() > range_.start && segment().target.start < range_.end();
    if (segment().isEmpty() || !isWanted) continue;
    if (!reader_) {
      if (auto opened = openSegment(); !opened) return tl::unexpected(opened.error());
    }
    while (true) {
      auto sample = reader_->next(goOn);
      if (!sample) return sample;
      if (!*sample) break;
      auto moved = mediaType_ == MediaType::video ? placedPicture(*sample) : placedSound(*sample);
      if (!moved || *moved) return moved;
    }
    if (!goOn()) return nullptr;
  }
  return nullptr;
}

Expected<void> SegmentTrackReader::seek(const MediaTimeRange& range, bool withShownAtStart) {
  range_ = range;
  wantsShownAtStart_ = withShownAtStart;
  const std::size_t open = readerIndex_;
  index_ = 0;
  while (index_ < segments_.size() && segment().target.end() <= range.start) ++index_;
  while (index_ < segments_.size() && segment().isEmpty()) ++index_;
  if (index_ == segments_.size()) {
    reader_.reset();
    return {};
  }
  if (open != index_) reader_.reset();
  // A reader that keeps pictures stays with its segment.
  return reader_ ? openSegment() : Expected<void>{};
}

Expected<std::shared_ptr<SampleBuffer>> SegmentTrackReader::placedPicture(
    const std::shared_ptr<SampleBuffer>& picture) const {
  const AssetTrackSegment& at = segment();
  SampleTiming timing = picture->timingEntries().front();
  // The picture that is shown when the segment begins is shown from there.
  const MediaTime begin = std::max(timing.presentationTimeStamp, at.source.start);
  const MediaTime end = timing.duration.isNumeric()
                            ? std::min(timing.presentationTimeStamp + timing.duration, at.source.end())
                            : at.source.end();
  if (end <= begin && timing.presentationTimeStamp < at.source.start) return nullptr;
  timing.presentationTimeStamp = placed(begin);
  timing.decodeTimeStamp = MediaTime::invalid();
  timing.duration = end > begin ? placed(end) - timing.presentationTimeStamp : MediaTime::invalid();
  if (timing.presentationTimeStamp >= range_.end()) return nullptr;
  return picture->copyWithNewTiming({timing});
}

Expected<std::shared_ptr<SampleBuffer>> SegmentTrackReader::placedSound(
    const std::shared_ptr<SampleBuffer>& sound) const {
  const AudioFormat& format = sound->format()->audioFormat;
  const double factor = stretch();
  if (segment().source.duration == segment().target.duration) {
    SampleTiming timing = sound->timingEntries().front();
    timing.presentationTimeStamp = placed(timing.presentationTimeStamp);
    auto moved = sound->copyWithNewTiming({timing});
    return moved ? cutToRange(*moved, range_) : moved;
  }
  // Frames of the result are counted from the segment's start, so that the pieces meet.
  const double begin = (sound->presentationTimeStamp() - segment().source.start).seconds() * format.sampleRate;
  const auto first = static_cast<std::int64_t>(std::ceil(begin * factor - 1e-6));
  const auto last =
      static_cast<std::int64_t>(std::ceil((begin + static_cast<double>(sound->numSamples())) * factor - 1e-6));
  if (last <= first) return nullptr;
  auto list = AudioBufferList::create(format, static_cast<std::size_t>(last - first));
  const auto* const from = static_cast<const float*>(sound->audioBufferList()->buffers().front().data);
  auto* const to = static_cast<float*>(list->buffers().front().data);
  const auto channels = static_cast<std::int64_t>(format.channelCount);
  for (std::int64_t frame = first; frame < last; ++frame) {
    const double position =
        std::clamp(static_cast<double>(frame) / factor - begin, 0.0, static_cast<double>(sound->numSamples() - 1));
    const auto left = static_cast<std::int64_t>(position);
    const std::int64_t right = std::min(left + 1, sound->numSamples() - 1);
    const auto weight = static_cast<float>(position - static_cast<double>(left));
    for (std::int64_t channel = 0; channel < channels; ++channel) {
      to[(frame - first) * channels + channel] =
          from[left * channels + channel] * (1 - weight) + from[right * channels + channel] * weight;
    }
  }
  const MediaTime start =
      segment().target.start + MediaTime::make(first, static_cast<std::int32_t>(std::lround(format.sampleRate)));
  auto stretched = SampleBuffer::createAudio(format, std::move(list), last - first, start);
  return stretched ? cutToRange(*stretched, range_) : stretched;
}

}  // namespace tavrel
