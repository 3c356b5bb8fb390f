#include "PlainTranscoding.h"

#include <algorithm>

#include "MovieOptions.h"
#include "TranscodingProgress.h"
#include "WrittenMovie.h"

namespace tavrel::tool {

double PlainTranscoding::Stream::time() const {
  const SampleTiming timing = next->timingEntries().front();
  const bool isStamped = timing.decodeTimeStamp.isNumeric();
  return (isStamped ? timing.decodeTimeStamp : timing.presentationTimeStamp).seconds();
}

double PlainTranscoding::Stream::end() const {
  const MediaTime time = next->presentationTimeStamp();
  const MediaTime duration = next->duration();
  return (duration.isNumeric() ? time + duration : time).seconds();
}

void PlainTranscoding::Stream::advance() {
  next = source->copyNextSampleBuffer();
  if (!next) destination->markAsFinished();
}

bool PlainTranscoding::serves(const TranscodingOptions& options, const InputMovie& movie) {
  // Matroska can say how far pictures are turned, not that they are mirrored.
  const AffineTransform turn = movie.pictures->preferredTransform();
  const bool isMirrored = turn.a * turn.d - turn.b * turn.c < 0;
  const bool isTurned = turn != AffineTransform{};
  const bool keepsTransform =
      options.fileType == kFileTypeMPEG4 || options.fileType == kFileTypeQuickTimeMovie || !isMirrored;
  const bool isDrawn = options.size && (isTurned || TavrelGPUImageContext::scaling().worksInLight);
  return !isDrawn && !options.isReversed && !options.isRealTime && keepsTransform;
}

std::string PlainTranscoding::notWritten(const Error& error) const {
  return fmt::format("cannot write {}: {}", options_.output.string(), error.description);
}

std::optional<std::string> PlainTranscoding::addStream(const std::shared_ptr<const AssetTrack>& track,
                                                       const std::optional<Dictionary>& decoding,
                                                       std::optional<Dictionary> encoding) {
  Stream stream{.source = std::make_shared<AssetReaderTrackOutput>(track, decoding),
                .destination = AssetWriterInput::create(track->mediaType(), std::move(encoding)),
                .next = nullptr};
  stream.destination->setTransform(track->preferredTransform());
  stream.destination->setLanguageCode(track->languageCode());
  reader_->addOutput(stream.source);
  if (!writer_->addInput(stream.destination)) return notWritten(*writer_->error());
  streams_.push_back(std::move(stream));
  return std::nullopt;
}

std::optional<std::string> PlainTranscoding::addPictures() {
  const AssetTrack& track = *movie_.pictures;
  if (options_.isCopy) {
    const auto& stored = *track.storedFormat();
    if (AssetWriter::canStore(stored, options_.fileType)) return addStream(movie_.pictures, {}, {});
    return fmt::format("{} cannot hold {} as it is: leave out --codec copy, or choose another file type",
                       options_.output.string(), stored.codecName);
  }
  constexpr auto kPlanes = static_cast<std::int64_t>(PixelFormat::biPlanar420VideoRange);
  return addStream(movie_.pictures, Dictionary{{kPixelBufferPixelFormatTypeKey, kPlanes}},
                   options_.isSquared
                       ? pictureSettings(options_, track, squaredSize(track), {1, 1})
                       : pictureSettings(options_, track, track.naturalSize(), track.pixelAspectRatio()));
}

std::optional<std::string> PlainTranscoding::addSound(const std::shared_ptr<const AssetTrack>& sound) {
  const bool isCopied =
      options_.audioSettings.empty() && AssetWriter::canStore(*sound->storedFormat(), options_.fileType);
  soundTreatment_ += fmt::format("{}{}", soundTreatment_.empty() ? "" : ", ", isCopied ? "copied" : "encoded");
  if (isCopied) return addStream(sound, {}, {});
  return addStream(sound, Dictionary{}, soundSettings(*sound, options_.fileType, options_.audioSettings));
}

std::optional<std::string> PlainTranscoding::open() {
  auto reader = AssetReader::create(movie_.asset);
  if (!reader) return reader.error().description;
  reader_ = std::move(*reader);
  reader_->setTimeRange(options_.timeRange);
  auto writer = AssetWriter::create(options_.output, options_.fileType);
  if (!writer) return notWritten(writer.error());
  writer_ = std::move(*writer);
  writer_->setAppearsWhenComplete(true);
  writer_->setStaysFragmented(options_.isFragmented);
  writer_->setMetadata(movie_.asset->metadata());
  if (auto refused = addPictures()) return refused;
  for (const auto& sound : movie_.sounds) {
    if (auto refused = addSound(sound)) return refused;
  }
  return std::nullopt;
}

std::optional<std::string> PlainTranscoding::work(const Interruption& interruption) {
  if (!reader_->startReading()) return reader_->error()->description;
  if (!writer_->startWriting()) return notWritten(*writer_->error());
  writer_->startSessionAtSourceTime(options_.timeRange.start);
  for (Stream& stream : streams_) stream.advance();
  const auto& first = streams_.front().next;
  const bool hasEditList = options_.fileType == kFileTypeQuickTimeMovie || options_.fileType == kFileTypeMPEG4;
  if (!hasEditList && first && first->presentationTimeStamp() < MediaTime::zero()) {
    return fmt::format("{} begins between two keyframes, which only .mov and .mp4 can say: leave out --codec copy",
                       options_.input.string());
  }
  const double start = options_.timeRange.start.seconds();
  TranscodingProgress progress(options_.secondsOf(*movie_.asset), options_.printsProgress);
  constexpr std::chrono::milliseconds kStep(100);
  while (!interruption.isAskedFor() && writer_->status() == AssetWriterStatus::writing) {
    const auto isEarlier = [](const Stream& one, const Stream& other) {
      return one.next && (!other.next || one.time() < other.time());
    };
    Stream& stream = *std::min_element(streams_.begin(), streams_.end(), isEarlier);
    if (!stream.next) break;
    if (!stream.destination->waitUntilReady(kStep)) continue;
    if (!stream.destination->append(stream.next)) {
      if (writer_->status() == AssetWriterStatus::failed) break;
      return fmt::format("the sample at {:.3f} s cannot be stored", stream.next->presentationTimeStamp().seconds());
    }
    if (&stream == &streams_.front()) ++picturesRead_;
    end_ = std::max(end_, stream.end() - start);
    progress.show(end_, picturesRead_);
    stream.advance();
  }
  if (interruption.isAskedFor()) return "interrupted";
  if (const auto error = reader_->error()) return error->description;
  if (writer_->finishWriting()) return std::nullopt;
  return notWritten(*writer_->error());
}

int PlainTranscoding::run(bool printJson, Diagnostics& diagnostics) {
  if (const auto reason = open()) return fail("{}", *reason);
  const Interruption interruption;
  if (const auto reason = work(interruption)) {
    writer_->cancelWriting();
    return fail("{}", *reason);
  }
  const Size stored = options_.isSquared ? squaredSize(*movie_.pictures) : movie_.pictures->naturalSize();
  const Size size = options_.size.value_or(stored);
  const WrittenMovie movie = {.file = options_.output,
                              .askedSize = size,
                              .size = options_.isCopy ? size : streams_.front().destination->encodedSize(),
                              .seconds = end_,
                              .frames = writer_->writtenSamples(MediaType::video),
                              .framesRead = picturesRead_,
                              .sound = soundTreatment_.empty() ? "none" : soundTreatment_};
  return movie.report(printJson, diagnostics);
}

}  // namespace tavrel::tool
