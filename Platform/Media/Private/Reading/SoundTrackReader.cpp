#include "Platform/Media/Private/Reading/SoundTrackReader.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>

#include "Platform/Media/Private/FFmpegTime.h"

namespace tavrel {
namespace {

/// What compressed sound needs before the place where it is to be right.
const MediaTime kLead = MediaTime::make(1, 4);

}  // namespace

Expected<std::shared_ptr<SampleBuffer>> cutToRange(const std::shared_ptr<SampleBuffer>& sound,
                                                   const MediaTimeRange& range) {
  const AudioFormat& format = sound->format()->audioFormat;
  const AVRational frames = {1, static_cast<int>(std::lround(format.sampleRate))};
  const MediaTime start = sound->presentationTimeStamp();
  const std::int64_t count = sound->numSamples();
  // Times far away do not fit the sound's own units.
  const auto placeOf = [&](const MediaTime& time) -> std::int64_t {
    if (!(time > start)) return 0;
    const std::int64_t place = unitsOf(time - start, frames);
    return place == AV_NOPTS_VALUE ? count : std::clamp<std::int64_t>(place, 0, count);
  };
  const std::int64_t first = placeOf(range.start);
  const std::int64_t last = placeOf(range.end());
  if (first >= last) return nullptr;
  if (first == 0 && last == count) return sound;
  auto cut = AudioBufferList::create(format, static_cast<std::size_t>(last - first));
  const auto* const from = static_cast<const std::uint8_t*>(sound->audioBufferList()->buffers().front().data);
  std::memcpy(cut->buffers().front().data, from + static_cast<std::size_t>(first) * format.bytesPerFrame(),
              static_cast<std::size_t>(last - first) * format.bytesPerFrame());
  return SampleBuffer::createAudio(format, std::move(cut), last - first, start + mediaTimeFrom(first, frames));
}

Expected<std::unique_ptr<SampleReader>> SoundTrackReader::open(const std::filesystem::path& path,
                                                               const AssetTrack& track, const AudioFormat& format) {
  auto decoder = TrackDecoder::open(path, track.trackID(), {.access = track.access()});
  if (!decoder) return tl::unexpected(decoder.error());
  return std::unique_ptr<SampleReader>(new SoundTrackReader(std::move(*decoder), format));
}

Expected<std::shared_ptr<SampleBuffer>> SoundTrackReader::next(const GoOn& goOn) {
  while (true) {
    const auto frame = first_ ? Expected<const AVFrame*>(std::exchange(first_, nullptr)) : decoder_->next(goOn);
    if (!frame) return tl::unexpected(frame.error());
    const bool isAtEnd = !*frame;
    if (isAtEnd && !goOn()) return nullptr;
    auto sound = isAtEnd ? pcm_.finish() : pcm_.convert(**frame, decoder_->timeBase());
    if (!sound || (isAtEnd && !*sound)) return sound;
    if (!*sound) continue;
    if ((*sound)->presentationTimeStamp() >= range_.end()) return nullptr;
    auto cut = cutToRange(*sound, range_);
    if (!cut || *cut) return cut;
  }
}

Expected<void> SoundTrackReader::seek(const MediaTimeRange& range, bool) {
  range_ = range;
  pcm_ = PcmConverter(format_);
  first_ = nullptr;
  const std::int64_t start = unitsOf(range.start, decoder_->timeBase());
  // Some containers lead to what lies beside pictures of that time, which may be sound of a later one.
  for (MediaTime lead = kLead; range.start > lead && decoder_->canSeek(); lead = lead + lead) {
    if (auto sought = decoder_->seek(unitsOf(range.start - lead, decoder_->timeBase())); !sought) return sought;
    const auto first = decoder_->next([] { return true; });
    if (!first || !*first || (*first)->pts > start) continue;
    first_ = *first;
    return {};
  }
  return decoder_->rewind();
}

}  // namespace tavrel
