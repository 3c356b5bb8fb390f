#include "Transcoding.h"

#include <array>
#include <cmath>
#include <limits>
#include <utility>

#include "MovieOptions.h"
#include "TranscodingProgress.h"
#include "WrittenMovie.h"

namespace tavrel::tool {
namespace {

constexpr std::chrono::milliseconds kStep(50);

/// Gives pictures exactly the size that is forced.
class SquaringFilter : public TavrelGPUImageCropFilter {
 public:
  static std::shared_ptr<TavrelGPUImageFilter> create(Size size) {
    const auto filter = std::make_shared<SquaringFilter>(Rect{{0, 0}, {1, 1}});
    filter->forceProcessingAtSize(size);
    return filter;
  }
  using TavrelGPUImageCropFilter::TavrelGPUImageCropFilter;

 protected:
  Size workingSize(Size) const override { return forcedMaximumSize(); }
};

/// How the graph turns pictures as a player turns them by `transform`; nothing for a transform that is no quarter turn.
std::optional<TavrelGPUImageRotationMode> uprightRotation(const AffineTransform& transform) {
  struct Turn {
    std::array<int, 4> matrix;
    TavrelGPUImageRotationMode mode;
  };
  constexpr std::array<Turn, 8> kTurns = {{{{1, 0, 0, 1}, kTavrelGPUImageNoRotation},
                                           {{0, -1, 1, 0}, kTavrelGPUImageRotateLeft},
                                           {{0, 1, -1, 0}, kTavrelGPUImageRotateRight},
                                           {{1, 0, 0, -1}, kTavrelGPUImageFlipVertical},
                                           {{-1, 0, 0, 1}, kTavrelGPUImageFlipHorizontal},
                                           {{0, 1, 1, 0}, kTavrelGPUImageRotateRightFlipVertical},
                                           {{0, -1, -1, 0}, kTavrelGPUImageRotateRightFlipHorizontal},
                                           {{-1, 0, 0, -1}, kTavrelGPUImageRotate180}}};
  const std::array<int, 4> matrix = {
      static_cast<int>(std::lround(transform.a)), static_cast<int>(std::lround(transform.b)),
      static_cast<int>(std::lround(transform.c)), static_cast<int>(std::lround(transform.d))};
  for (const Turn& turn : kTurns) {
    if (turn.matrix == matrix) return turn.mode;
  }
  return std::nullopt;
}

}  // namespace

/// Reads the tracks and the time that are asked for.
class Transcoding::PartOfMovie : public TavrelGPUImageMovie {
 public:
  PartOfMovie(const InputMovie& input, const MediaTimeRange& timeRange)
      : TavrelGPUImageMovie(input.asset), input_(input), timeRange_(timeRange) {}

 protected:
  std::shared_ptr<AssetReader> createAssetReader() override {
    auto reader = AssetReader::create(input_.asset).value();
    reader->setTimeRange(timeRange_);
    reader->addOutput(std::make_shared<AssetReaderTrackOutput>(input_.pictures, settingsOfSoonestPictures()));
    return reader;
  }

 private:
  const InputMovie& input_;
  const MediaTimeRange timeRange_;
};

/// Counts the pictures that enter the graph, and has the effects prepare them.
class Transcoding::FrameCounter : public TavrelGPUImageMovieDelegate {
 public:
  explicit FrameCounter(const TavrelCaptureEffectChain& effects) : effects_(effects) {}

  std::shared_ptr<PixelBuffer> didOutputPixelBuffer(const std::shared_ptr<PixelBuffer>& pixelBuffer,
                                                    MediaTime time) override {
    ++count;
    seconds = time.seconds();
    return effects_.prepareFrame(
        pixelBuffer, {.duration = {}, .presentationTimeStamp = time, .decodeTimeStamp = MediaTime::invalid()}, time);
  }

  std::atomic<std::uint64_t> count = 0;
  std::atomic<double> seconds = 0;

 private:
  const TavrelCaptureEffectChain& effects_;
};

Transcoding::Transcoding(TranscodingOptions options, InputMovie movie, TavrelCaptureEffectChain effects)
    : options_(std::move(options)), input_(std::move(movie)), effects_(std::move(effects)) {}

int Transcoding::run(bool printJson, Diagnostics& diagnostics) {
  buildGraph();
  if (const auto error = writer_->error())
    return fail("cannot write {}: {}", options_.output.string(), error->description);
  if (refusal_) return fail("{}", *refusal_);

  const Interruption interruption;
  work(interruption);
  if (const auto reason = finish(interruption)) return fail("{}", *reason);
  return report(printJson, diagnostics);
}

void Transcoding::addOtherTracks() {
  otherReader_ = AssetReader::create(input_.asset).value();
  otherReader_->setTimeRange(options_.timeRange);
  otherTracks_.emplace(options_, otherReader_, writer_->assetWriter());
  for (const auto& sound : input_.sounds) {
    if (!refusal_) refusal_ = otherTracks_->addSound(sound);
  }
  for (const auto& subtitles : input_.subtitles) {
    if (!refusal_) refusal_ = otherTracks_->add(subtitles, {}, {});
  }
}

bool Transcoding::passOtherTracks(double seconds) {
  if (refusal_ || !otherTracks_->next() || otherTracks_->nextTime() > seconds) return false;
  const auto passed = otherTracks_->pass(kStep);
  if (!passed) refusal_ = passed.error().description;
  return true;
}

void Transcoding::buildGraph() {
  movie_ = std::make_shared<PartOfMovie>(input_, options_.timeRange);
  frameCounter_ = std::make_shared<FrameCounter>(effects_);
  movie_->setDelegate(frameCounter_);
  movie_->setReverseVideo(options_.isReversed);
  movie_->setPlayAtActualSpeed(options_.isRealTime);

  // Effects are meant for the picture as it is seen, so it gets square pixels and is turned before them.
  std::shared_ptr<TavrelGPUImageOutput> last = movie_;
  const auto pass = [&last](const std::shared_ptr<TavrelGPUImageFilter>& filter) {
    last->addTarget(filter);
    last = filter;
  };
  Size size = squaredSize(*input_.pictures);
  if (size != input_.pictures->naturalSize()) pass(SquaringFilter::create(size));
  const auto turn = uprightRotation(input_.pictures->preferredTransform());
  if (turn && *turn != kTavrelGPUImageNoRotation) {
    const auto upright = std::make_shared<TavrelGPUImageRotationFilter>(*turn);
    pass(upright);
    size = upright->outputSizeFor(size);
  }
  last = effects_.connect(last, size);
  size = effects_.sizeAfter(size);
  Size whole = {std::floor(size.width), std::floor(size.height)};
  if (TavrelGPUImageContext::scaling().worksInLight) whole = scaledSize(options_, whole);
  if (whole != size) pass(SquaringFilter::create(whole));
  // Other scaling is the encoder's: it is better than a draw.
  Dictionary settings = pictureSettings(options_, *input_.pictures, whole, {1, 1});
  settings.emplace(kTavrelEncodingLiveVideoKey, false);
  writer_ = std::make_shared<TavrelGPUImageMovieWriter>(options_.output, whole, options_.fileType, settings);
  if (const auto& file = writer_->assetWriter()) {
    file->setAppearsWhenComplete(true);
    file->setStaysFragmented(options_.isFragmented);
    carryOver(options_, *input_.asset, *file);
  }
  last->addTarget(writer_);
  if (!turn) writer_->setTransform(input_.pictures->preferredTransform());
  if (!writer_->error()) addOtherTracks();
  movie_->enableSynchronizedEncodingUsingMovieWriter(writer_);
}

void Transcoding::work(const Interruption& interruption) {
  writer_->setCompletionBlock([this] { isOver_ = true; });
  writer_->startRecording();
  // The new movie's time line is the old one's, whichever of pictures and sound come first.
  writer_->assetWriter()->startSessionAtSourceTime(options_.timeRange.start);
  if (!otherTracks_->isEmpty() && otherReader_->startReading()) otherTracks_->start();
  const auto reading = DispatchQueue::create("org.tavrel.tool.movie");
  reading->async([this] { movie_->startProcessing(); });
  TranscodingProgress progress(options_.secondsOf(*input_.asset), options_.printsProgress);
  constexpr double kAhead = 1;
  while (!isOver_ && !refusal_ && !interruption.isAskedFor() && !isBrokenOff()) {
    if (!passOtherTracks(frameCounter_->seconds + kAhead))
      RunLoop::main().runUntil([this] { return isOver_.load(); }, kStep);
    progress.show(frameCounter_->seconds - options_.timeRange.start.seconds(), frameCounter_->count);
  }
  if (!isOver_) movie_->cancelProcessing();
  reading->sync([] {});
  constexpr double kEver = std::numeric_limits<double>::infinity();
  while (!interruption.isAskedFor() && !isBrokenOff() && passOtherTracks(kEver)) continue;
}

bool Transcoding::isBrokenOff() const {
  const auto reader = movie_->assetReader();
  return writer_->assetWriter()->status() == AssetWriterStatus::failed ||
         (reader && reader->status() == AssetReaderStatus::failed);
}

std::optional<std::string> Transcoding::finish(const Interruption& interruption) {
  const auto giveUp = [this](std::string reason) {
    writer_->cancelRecording();
    return reason;
  };
  if (interruption.isAskedFor()) return giveUp("interrupted");
  if (refusal_) return giveUp(*refusal_);
  if (const auto error = otherReader_->error()) return giveUp(error->description);
  if (const auto error = movie_->assetReader()->error()) return giveUp(error->description);
  const bool isBroken = writer_->assetWriter()->status() == AssetWriterStatus::failed;
  if (frameCounter_->count == 0 && !isBroken)
    return giveUp(fmt::format("{} has no picture that can be decoded", options_.input.string()));
  DispatchSemaphore finished(0);
  writer_->finishRecordingWithCompletionHandler([&finished] { finished.signal(); });
  finished.wait();
  if (writer_->assetWriter()->status() == AssetWriterStatus::completed) return std::nullopt;
  const auto error = writer_->error();
  return giveUp(fmt::format("cannot write {}: {}", options_.output.string(), error ? error->description : "?"));
}

int Transcoding::report(bool printJson, Diagnostics& diagnostics) const {
  const WrittenMovie movie = {.file = options_.output,
                              .askedSize = options_.size.value_or(writer_->maximumOutputSize()),
                              .size = writer_->encodedSize(),
                              .seconds = writer_->duration().seconds(),
                              .frames = writer_->writtenVideoFrames(),
                              .framesRead = frameCounter_->count.load(),
                              .sound = otherTracks_->soundTreatment()};
  return movie.report(printJson, diagnostics);
}

}  // namespace tavrel::tool
