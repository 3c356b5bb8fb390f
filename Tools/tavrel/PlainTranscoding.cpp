#include "PlainTranscoding.h"

#include <algorithm>

#include "MovieOptions.h"
#include "TranscodingProgress.h"
#include "WrittenMovie.h"

namespace tavrel::tool {

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

std::optional<std::string> PlainTranscoding::addPictures() {
  const AssetTrack& track = *movie_.pictures;
  if (options_.isCopy) {
    const auto& stored = *track.storedFormat();
    if (AssetWriter::canStore(stored, options_.fileType)) return streams_->add(movie_.pictures, {}, {});
    return fmt::format("{} cannot hold {} as it is: leave out --codec copy, or choose another file type",
                       options_.output.string(), stored.codecName);
  }
  const PixelFormat planes = options_.keepsHDR && track.containsHDRVideo() ? PixelFormat::biPlanar420VideoRange10
                                                                           : PixelFormat::biPlanar420VideoRange;
  const std::string fields = options_.keepsFields ? kVideoFieldModeBothFields : kVideoFieldModeDeinterlaceFields;
  return streams_->add(
      movie_.pictures,
      Dictionary{{kPixelBufferPixelFormatTypeKey, static_cast<std::int64_t>(planes)}, {kVideoFieldModeKey, fields}},
      options_.isSquared ? pictureSettings(options_, track, squaredSize(track), {1, 1})
                         : pictureSettings(options_, track, track.naturalSize(), track.pixelAspectRatio()));
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
  carryOver(options_, *movie_.asset, *writer_);
  streams_.emplace(options_, reader_, writer_);
  if (auto refused = addPictures()) return refused;
  for (const auto& sound : movie_.sounds) {
    if (auto refused = streams_->addSound(sound)) return refused;
  }
  for (const auto& subtitles : movie_.subtitles) {
    if (auto refused = streams_->add(subtitles, {}, {})) return refused;
  }
  return std::nullopt;
}

std::optional<std::string> PlainTranscoding::work(const Interruption& interruption) {
  if (!reader_->startReading()) return reader_->error()->description;
  if (!writer_->startWriting()) return notWritten(*writer_->error());
  writer_->startSessionAtSourceTime(options_.timeRange.start);
  streams_->start();
  const auto first = streams_->nextOfFirst();
  const bool hasEditList = options_.fileType == kFileTypeMPEG4 || options_.fileType == kFileTypeQuickTimeMovie;
  if (!hasEditList && first && first->presentationTimeStamp() < MediaTime::zero()) {
    return fmt::format("{} begins between two keyframes, which only .mov and .mp4 can say: leave out --codec copy",
                       options_.input.string());
  }
  const double start = options_.timeRange.start.seconds();
  TranscodingProgress progress(options_.secondsOf(*movie_.asset), options_.printsProgress);
  while (!interruption.isAskedFor() && writer_->status() == AssetWriterStatus::writing) {
    const auto sample = streams_->next();
    if (!sample) break;
    const auto passed = streams_->pass(std::chrono::milliseconds(100));
    if (!passed && writer_->status() == AssetWriterStatus::writing) return passed.error().description;
    if (!passed || !*passed) continue;
    if (sample->format()->mediaType == MediaType::video) ++picturesRead_;
    const MediaTime time = sample->presentationTimeStamp();
    const MediaTime duration = sample->duration();
    end_ = std::max(end_, (duration.isNumeric() ? time + duration : time).seconds() - start);
    progress.show(end_, picturesRead_);
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
                              .size = options_.isCopy ? size : streams_->inputs().front()->encodedSize(),
                              .seconds = end_,
                              .frames = writer_->writtenSamples(MediaType::video),
                              .framesRead = picturesRead_,
                              .sound = streams_->soundTreatment()};
  return movie.report(printJson, diagnostics);
}

}  // namespace tavrel::tool
