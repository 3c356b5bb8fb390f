#include "MovieCopy.h"

#include <algorithm>

#include "MovieOptions.h"
#include "WrittenMovie.h"

namespace tavrel::tool {

double MovieCopy::Stream::time() const {
  const SampleTiming timing = next->timingEntries().front();
  const bool isStamped = timing.decodeTimeStamp.isNumeric();
  return (isStamped ? timing.decodeTimeStamp : timing.presentationTimeStamp).seconds();
}

void MovieCopy::Stream::advance() {
  next = source->copyNextSampleBuffer();
  if (!next) destination->markAsFinished();
}

std::optional<std::string> MovieCopy::addStream(const std::shared_ptr<const AssetTrack>& track,
                                                std::optional<Dictionary> settings) {
  Stream stream{.source = std::make_shared<AssetReaderTrackOutput>(track, std::nullopt),
                .destination = AssetWriterInput::create(track->mediaType(), std::move(settings)),
                .next = nullptr};
  stream.destination->setTransform(track->preferredTransform());
  reader_->addOutput(stream.source);
  if (!writer_->addInput(stream.destination)) return writer_->error()->description;
  streams_.push_back(std::move(stream));
  return std::nullopt;
}

std::optional<std::string> MovieCopy::open() {
  auto asset = Asset::create(options_.input, {.prefersPreciseDurationAndTiming = true});
  if (!asset) return asset.error().description;
  asset_ = std::move(*asset);
  const auto pictures = asset_->tracksWithMediaType(MediaType::video);
  if (pictures.empty()) return fmt::format("{} has no pictures, only sound", options_.input.string());
  const auto& stored = *pictures.front()->storedFormat();
  if (!AssetWriter::canStore(stored, options_.fileType)) {
    return fmt::format("{} cannot hold {} as it is: leave out --codec copy, or choose another file type",
                       options_.output.string(), stored.codecName);
  }
  auto reader = AssetReader::create(asset_);
  if (!reader) return reader.error().description;
  reader_ = std::move(*reader);
  auto writer = AssetWriter::create(options_.output, options_.fileType);
  if (!writer) return fmt::format("cannot write {}: {}", options_.output.string(), writer.error().description);
  writer_ = std::move(*writer);
  writer_->setAppearsWhenComplete(true);
  writer_->setStaysFragmented(options_.isFragmented);
  size_ = stored.videoSize;
  if (auto refused = addStream(pictures.front(), std::nullopt)) return refused;
  const auto sounds = asset_->tracksWithMediaType(MediaType::audio);
  if (!options_.hasSound || sounds.empty()) return std::nullopt;
  const bool isStorable = AssetWriter::canStore(*sounds.front()->storedFormat(), options_.fileType);
  soundTreatment_ = isStorable ? "copied" : "encoded";
  return addStream(sounds.front(),
                   isStorable ? std::nullopt : std::optional(soundSettings(*sounds.front(), options_.fileType, {})));
}

std::optional<std::string> MovieCopy::copy(const Interruption& interruption) {
  if (!reader_->startReading()) return reader_->error()->description;
  if (!writer_->startWriting()) return writer_->error()->description;
  writer_->startSessionAtSourceTime(MediaTime::zero());
  for (Stream& stream : streams_) stream.advance();
  const auto& first = streams_.front().next;
  const bool hasEditList = options_.fileType == kFileTypeQuickTimeMovie || options_.fileType == kFileTypeMPEG4;
  if (!hasEditList && first && first->presentationTimeStamp() < MediaTime::zero()) {
    return fmt::format("{} begins between two keyframes, which only .mov and .mp4 can say: leave out --codec copy",
                       options_.input.string());
  }
  ProgressBar progress;
  const double whole = asset_->duration().seconds();
  constexpr std::chrono::milliseconds kStep(100);
  while (!interruption.isAskedFor() && writer_->status() == AssetWriterStatus::writing) {
    const auto isEarlier = [](const Stream& one, const Stream& other) {
      return one.next && (!other.next || one.time() < other.time());
    };
    Stream& stream = *std::min_element(streams_.begin(), streams_.end(), isEarlier);
    if (!stream.next) break;
    if (!stream.destination->waitUntilReady(kStep)) continue;
    if (!stream.destination->append(stream.next)) {
      return fmt::format("the sample at {:.3f} s cannot be copied", stream.next->presentationTimeStamp().seconds());
    }
    end_ = std::max(end_, stream.next->presentationTimeStamp().seconds());
    progress.show(whole > 0 ? end_ / whole : 0, fmt::format("{:.1f} s", end_));
    stream.advance();
  }
  if (interruption.isAskedFor()) return "interrupted";
  if (const auto error = reader_->error()) return error->description;
  if (writer_->finishWriting()) return std::nullopt;
  return fmt::format("cannot write {}: {}", options_.output.string(), writer_->error()->description);
}

int MovieCopy::run(bool printJson, Diagnostics& diagnostics) {
  if (const auto reason = open()) return fail("{}", *reason);
  const Interruption interruption;
  if (const auto reason = copy(interruption)) {
    writer_->cancelWriting();
    return fail("{}", *reason);
  }
  const WrittenMovie movie = {.file = options_.output,
                              .askedSize = size_,
                              .size = size_,
                              .seconds = end_,
                              .frames = writer_->writtenSamples(MediaType::video),
                              .sound = soundTreatment_};
  return movie.report(printJson, diagnostics);
}

}  // namespace tavrel::tool
