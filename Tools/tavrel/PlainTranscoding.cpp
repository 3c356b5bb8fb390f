#include "PlainTranscoding.h"

#include <algorithm>

#include "MovieOptions.h"
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
  // Other containers have no place for it: the pictures are turned.
  const bool keepsTransform = options.fileType == kFileTypeMPEG4 || options.fileType == kFileTypeQuickTimeMovie;
  return !options.size && !options.isReversed && !options.isRealTime &&
         (keepsTransform || movie.pictures->preferredTransform() == AffineTransform{});
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
                   pictureSettings(track, options_.fileType, track.naturalSize(), options_.videoSettings));
}

std::optional<std::string> PlainTranscoding::addSound() {
  if (!movie_.sound) return std::nullopt;
  const auto& stored = movie_.sound->storedFormat();
  const bool isCopied = options_.audioSettings.empty() && AssetWriter::canStore(*stored, options_.fileType);
  soundTreatment_ = isCopied ? "copied" : "encoded";
  if (isCopied) return addStream(movie_.sound, {}, {});
  return addStream(movie_.sound, Dictionary{}, soundSettings(*movie_.sound, options_.fileType, options_.audioSettings));
}

std::optional<std::string> PlainTranscoding::open() {
  auto reader = AssetReader::create(movie_.asset);
  if (!reader) return reader.error().description;
  reader_ = std::move(*reader);
  auto writer = AssetWriter::create(options_.output, options_.fileType);
  if (!writer) return notWritten(writer.error());
  writer_ = std::move(*writer);
  writer_->setAppearsWhenComplete(true);
  writer_->setStaysFragmented(options_.isFragmented);
  if (auto refused = addPictures()) return refused;
  return addSound();
}

std::optional<std::string> PlainTranscoding::work(const Interruption& interruption) {
  if (!reader_->startReading()) return reader_->error()->description;
  if (!writer_->startWriting()) return notWritten(*writer_->error());
  writer_->startSessionAtSourceTime(MediaTime::zero());
  for (Stream& stream : streams_) stream.advance();
  const auto& first = streams_.front().next;
  const bool hasEditList = options_.fileType == kFileTypeQuickTimeMovie || options_.fileType == kFileTypeMPEG4;
  if (!hasEditList && first && first->presentationTimeStamp() < MediaTime::zero()) {
    return fmt::format("{} begins between two keyframes, which only .mov and .mp4 can say: leave out --codec copy",
                       options_.input.string());
  }
  ProgressBar progress;
  const double whole = movie_.asset->duration().seconds();
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
    end_ = std::max(end_, stream.end());
    progress.show(whole > 0 ? end_ / whole : 0, fmt::format("{:.1f} s", end_));
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
  const Size size = movie_.pictures->naturalSize();
  const WrittenMovie movie = {.file = options_.output,
                              .askedSize = size,
                              .size = options_.isCopy ? size : streams_.front().destination->encodedSize(),
                              .seconds = end_,
                              .frames = writer_->writtenSamples(MediaType::video),
                              .framesRead = picturesRead_,
                              .sound = soundTreatment_};
  return movie.report(printJson, diagnostics);
}

}  // namespace tavrel::tool
