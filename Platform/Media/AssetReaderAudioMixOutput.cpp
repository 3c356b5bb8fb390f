#include "Platform/Media/AssetReaderAudioMixOutput.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "Platform/Foundation/FatalAssertion.h"
#include "Platform/Media/AssetReader.h"
#include "Platform/Media/MediaError.h"
#include "Platform/Media/Private/Reading/SampleReader.h"

namespace tavrel {
namespace {

/// Frames of one buffer of the mix.
constexpr std::int64_t kPiece = 1024;
/// Frames between two looks at a volume; in between it is drawn straight.
constexpr std::int64_t kVolumeStep = 32;

/// One track of the mix.
class MixInput {
 public:
  MixInput(std::unique_ptr<SampleReader> reader, const AudioFormat& format, const AudioMixInputParameters* parameters)
      : reader_(std::move(reader)), format_(format) {
    if (parameters) parameters_ = *parameters;
  }

  /// Adds the frames from `begin` on that this track has to `count` frames at `target`. False when nothing will come
  /// any more.
  Expected<bool> addTo(float* target, std::int64_t begin, std::int64_t count, const GoOn& goOn) {
    while (true) {
      if (!sound_ && !hasEnded_) {
        auto next = reader_->next(goOn);
        if (!next) return tl::unexpected(next.error());
        sound_ = std::move(*next);
        hasEnded_ = !sound_;
      }
      if (!sound_) return false;
      const std::int64_t first = frameOf(sound_->presentationTimeStamp());
      const std::int64_t last = first + sound_->numSamples();
      if (first >= begin + count) return true;
      add(target, begin, std::max(begin, first), std::min(begin + count, last), first);
      if (last > begin + count) return true;
      sound_.reset();
    }
  }

  Expected<void> restart(const MediaTimeRange& range) {
    sound_.reset();
    hasEnded_ = false;
    return reader_->seek(range, false);
  }

 private:
  std::int64_t frameOf(MediaTime time) const { return std::llround(time.seconds() * format_.sampleRate); }

  float volumeAt(std::int64_t frame) const {
    if (!parameters_) return 1;
    const auto rate = static_cast<std::int32_t>(std::lround(format_.sampleRate));
    return static_cast<float>(parameters_->volumeAt(MediaTime::make(frame, rate)));
  }

  /// Frames `from` to `to` of the mix; the buffer begins at frame `first`.
  void add(float* target, std::int64_t begin, std::int64_t from, std::int64_t to, std::int64_t first) const {
    const auto channels = static_cast<std::int64_t>(format_.channelCount);
    const auto* const sound = static_cast<const float*>(sound_->audioBufferList()->buffers().front().data);
    for (std::int64_t step = from; step < to; step += kVolumeStep) {
      const std::int64_t end = std::min(to, step + kVolumeStep);
      const float volume = volumeAt(step);
      const float change = parameters_ ? (volumeAt(end) - volume) / static_cast<float>(end - step) : 0;
      for (std::int64_t frame = step; frame < end; ++frame) {
        const float factor = volume + change * static_cast<float>(frame - step);
        for (std::int64_t channel = 0; channel < channels; ++channel) {
          target[(frame - begin) * channels + channel] += factor * sound[(frame - first) * channels + channel];
        }
      }
    }
  }

  std::unique_ptr<SampleReader> reader_;
  AudioFormat format_;
  std::optional<AudioMixInputParameters> parameters_;
  std::shared_ptr<SampleBuffer> sound_;
  bool hasEnded_ = false;
};

class MixReader final : public SampleReader {
 public:
  MixReader(std::vector<MixInput> inputs, const AudioFormat& format, MediaTime end)
      : inputs_(std::move(inputs)), format_(format), end_(frameAt(end)) {}

  Expected<std::shared_ptr<SampleBuffer>> next(const GoOn& goOn) override {
    const std::int64_t count = std::min(kPiece, end_ - position_);
    if (!goOn() || count <= 0) return nullptr;
    auto list = AudioBufferList::create(format_, static_cast<std::size_t>(count));
    bool isGoingOn = false;
    for (MixInput& input : inputs_) {
      const auto added = input.addTo(static_cast<float*>(list->buffers().front().data), position_, count, goOn);
      if (!added) return tl::unexpected(added.error());
      isGoingOn = isGoingOn || *added;
    }
    if (!goOn()) return nullptr;
    const MediaTime time = MediaTime::make(position_, static_cast<std::int32_t>(std::lround(format_.sampleRate)));
    // The end that the tracks tell may be late; what is there by now is the last piece.
    position_ = isGoingOn ? position_ + count : end_;
    return SampleBuffer::createAudio(format_, std::move(list), count, time);
  }

  Expected<void> seek(const MediaTimeRange& range, bool) override {
    position_ = frameAt(range.start);
    const MediaTime end = range.end();
    if (end.isNumeric()) end_ = frameAt(end);
    for (MixInput& input : inputs_) {
      if (auto restarted = input.restart(range); !restarted) return restarted;
    }
    return {};
  }

 private:
  std::int64_t frameAt(MediaTime time) const { return std::llround(time.seconds() * format_.sampleRate); }

  std::vector<MixInput> inputs_;
  const AudioFormat format_;
  std::int64_t end_;
  std::int64_t position_ = 0;
};

const AudioMixInputParameters* parametersOf(const AudioMix* mix, int trackID) {
  if (!mix) return nullptr;
  const auto& all = mix->inputParameters();
  const auto found = std::find_if(all.begin(), all.end(), [&](const auto& each) { return each.trackID() == trackID; });
  return found == all.end() ? nullptr : &*found;
}

}  // namespace

AssetReaderAudioMixOutput::AssetReaderAudioMixOutput(std::vector<std::shared_ptr<const AssetTrack>> audioTracks)
    : tracks_(std::move(audioTracks)) {
  if (tracks_.empty()) fatalAssertion("An asset reader output needs a track");
}

Expected<std::unique_ptr<SampleReader>> AssetReaderAudioMixOutput::open(const AssetReader& reader) {
  AudioFormat format;
  format.channelCount = 0;
  for (const auto& track : tracks_) {
    if (track->sampleRate() <= 0) continue;
    if (format.channelCount == 0) format.sampleRate = track->sampleRate();
    format.channelCount = std::max(format.channelCount, static_cast<std::uint32_t>(track->channelCount()));
  }
  if (format.channelCount == 0) return failure(MediaErrorCode::noPlayableTrack, "the tracks of an audio mix are empty");
  SampleForm form;
  form.audioFormat = format;
  MediaTime end = MediaTime::zero();
  std::vector<MixInput> inputs;
  for (const auto& track : tracks_) {
    auto opened = openTrack(*track, form, reader.asset()->path());
    if (!opened) return tl::unexpected(opened.error());
    inputs.emplace_back(std::move(*opened), format, parametersOf(audioMix_.get(), track->trackID()));
    end = std::max(end, track->timeRange().end());
  }
  return std::make_unique<MixReader>(std::move(inputs), format, end);
}

}  // namespace tavrel
