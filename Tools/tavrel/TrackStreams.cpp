#include "TrackStreams.h"

#include <fmt/format.h>

#include <algorithm>

#include "MovieOptions.h"

namespace tavrel::tool {

double TrackStreams::Stream::time() const {
  const SampleTiming timing = next->timingEntries().front();
  const bool isStamped = timing.decodeTimeStamp.isNumeric();
  return (isStamped ? timing.decodeTimeStamp : timing.presentationTimeStamp).seconds();
}

void TrackStreams::Stream::advance() {
  next = source->copyNextSampleBuffer();
  if (!next) destination->markAsFinished();
}

std::optional<std::string> TrackStreams::add(const std::shared_ptr<const AssetTrack>& track,
                                             const std::optional<Dictionary>& decoding,
                                             std::optional<Dictionary> encoding) {
  Stream stream{.source = std::make_shared<AssetReaderTrackOutput>(track, decoding),
                .destination = AssetWriterInput::create(track->mediaType(), std::move(encoding), track->storedFormat()),
                .next = nullptr};
  stream.destination->setTransform(track->preferredTransform());
  stream.destination->setLanguageCode(track->languageCode());
  reader_->addOutput(stream.source);
  if (!writer_->addInput(stream.destination))
    return fmt::format("cannot write {}: {}", options_.output.string(), writer_->error()->description);
  inputs_.push_back(stream.destination);
  streams_.push_back(std::move(stream));
  return std::nullopt;
}

std::optional<std::string> TrackStreams::addSound(const std::shared_ptr<const AssetTrack>& sound) {
  // Many readers of MP4 do not play Vorbis from within a packet on, and then play what follows too soon. WavPack's
  // packets take half a second, of which Matroska cannot leave out a part.
  const MediaTimeRange& part = options_.timeRange;
  const bool isCutInFront = part.start > MediaTime::zero();
  const bool isMisread = isCutInFront && sound->codecName() == "vorbis" && options_.fileType == kFileTypeMPEG4;
  const bool isCoarse = (isCutInFront || part.duration.isNumeric()) && sound->codecName() == "wavpack";
  const bool isCopied = options_.audioSettings.empty() && !isMisread && !isCoarse &&
                        AssetWriter::canStore(*sound->storedFormat(), options_.fileType);
  soundTreatment_ += fmt::format("{}{}", soundTreatment_.empty() ? "" : ", ", isCopied ? "copied" : "encoded");
  if (isCopied) return add(sound, {}, {});
  const Dictionary encoding = soundSettings(*sound, options_.fileType, options_.audioSettings);
  // The decoder knows where the speakers of surround are, which the number of channels does not say, and mixes them.
  const Value channels = encoding.find(kAudioNumberOfChannelsKey)->second;
  Dictionary decoding;
  if (sound->channelCount() > std::min<std::int64_t>(2, std::get<std::int64_t>(channels)))
    decoding.emplace(kAudioNumberOfChannelsKey, channels);
  return add(sound, decoding, encoding);
}

void TrackStreams::start() {
  for (Stream& stream : streams_) stream.advance();
}

TrackStreams::Stream* TrackStreams::earliest() {
  Stream* first = nullptr;
  for (Stream& stream : streams_) {
    if (stream.next && (!first || stream.time() < first->time())) first = &stream;
  }
  return first;
}

std::shared_ptr<SampleBuffer> TrackStreams::next() {
  const Stream* const stream = earliest();
  return stream ? stream->next : nullptr;
}

double TrackStreams::nextTime() { return earliest()->time(); }

Expected<bool> TrackStreams::pass(std::chrono::milliseconds timeout) {
  Stream& stream = *earliest();
  if (!stream.destination->waitUntilReady(timeout)) return false;
  if (!stream.destination->append(stream.next)) {
    if (writer_->status() == AssetWriterStatus::failed) return tl::unexpected(*writer_->error());
    return failure(MediaErrorCode::writingFailed, fmt::format("the sample at {:.3f} s cannot be stored",
                                                              stream.next->presentationTimeStamp().seconds()));
  }
  stream.advance();
  return true;
}

}  // namespace tavrel::tool
