#include "Transcoding.h"

#include <array>
#include <cmath>
#include <utility>

#include "MovieOptions.h"
#include "WrittenMovie.h"

namespace tavrel::tool {
namespace {

/// Has exactly the size that is forced; the base's is fitted into it, which may be a hair less.
class FillingCropFilter : public TavrelGPUImageCropFilter {
 public:
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

/// Counts the pictures that enter the graph, and has the effects prepare them.
class Transcoding::FrameCounter : public TavrelGPUImageMovieDelegate {
 public:
  explicit FrameCounter(const TavrelCaptureEffectChain& effects) : effects_(effects) {}

  std::shared_ptr<PixelBuffer> didOutputPixelBuffer(const std::shared_ptr<PixelBuffer>& pixelBuffer,
                                                    MediaTime time) override {
    ++count;
    return effects_.prepareFrame(
        pixelBuffer, {.duration = {}, .presentationTimeStamp = time, .decodeTimeStamp = MediaTime::invalid()}, time);
  }

  std::atomic<std::uint64_t> count = 0;

 private:
  const TavrelCaptureEffectChain& effects_;
};

Transcoding::Transcoding(TranscodingOptions options, InputMovie movie, TavrelCaptureEffectChain effects)
    : options_(std::move(options)), input_(std::move(movie)), effects_(std::move(effects)) {}

int Transcoding::run(bool printJson, Diagnostics& diagnostics) {
  buildGraph();
  if (const auto error = writer_->error())
    return fail("cannot write {}: {}", options_.output.string(), error->description);

  const Interruption interruption;
  work(interruption);
  if (const auto reason = finish(interruption)) return fail("{}", *reason);
  return report(printJson, diagnostics);
}

void Transcoding::chooseSound() {
  if (!input_.sound) return;
  const auto& stored = input_.sound->storedFormat();
  const bool isLeft = options_.audioSettings.empty() && stored;
  if (isLeft && AssetWriter::canStore(*stored, options_.fileType)) {
    writer_->setShouldPassthroughAudio(true);
    writer_->setHasAudioTrack(true);
    soundTreatment_ = "copied";
  } else {
    writer_->setHasAudioTrack(true, soundSettings(*input_.sound, options_.fileType, options_.audioSettings));
    soundTreatment_ = "encoded";
  }
  movie_->setAudioEncodingTarget(writer_);
}

void Transcoding::buildGraph() {
  movie_ = std::make_shared<TavrelGPUImageMovie>(input_.asset);
  frameCounter_ = std::make_shared<FrameCounter>(effects_);
  movie_->setDelegate(frameCounter_);
  movie_->setReverseVideo(options_.isReversed);
  movie_->setPlayAtActualSpeed(options_.isRealTime);

  // Effects are meant for the picture as it is seen, so it is turned before them.
  std::shared_ptr<TavrelGPUImageOutput> last = movie_;
  Size size = input_.pictures->naturalSize();
  const auto turn = uprightRotation(input_.pictures->preferredTransform());
  if (turn && *turn != kTavrelGPUImageNoRotation) {
    const auto upright = std::make_shared<TavrelGPUImageRotationFilter>(*turn);
    last->addTarget(upright);
    last = upright;
    size = upright->outputSizeFor(size);
  }
  last = effects_.connect(last, size);
  size = effects_.sizeAfter(size);
  const Size movieSize = options_.size.value_or(Size{std::floor(size.width), std::floor(size.height)});
  Dictionary settings = pictureSettings(*input_.pictures, options_.fileType, movieSize, options_.videoSettings);
  settings.emplace(kTavrelEncodingLiveVideoKey, false);
  writer_ = std::make_shared<TavrelGPUImageMovieWriter>(options_.output, movieSize, options_.fileType, settings);
  if (const auto& file = writer_->assetWriter()) {
    file->setAppearsWhenComplete(true);
    file->setStaysFragmented(options_.isFragmented);
  }
  const Rect part = options_.size ? TavrelGPUImageCropFilter::centredRegion(size, movieSize) : Rect{{0, 0}, {1, 1}};
  if (movieSize != size) {
    const auto crop = std::make_shared<FillingCropFilter>(part);
    crop->forceProcessingAtSize(movieSize);
    last->addTarget(crop);
    last = crop;
  }
  last->addTarget(writer_);
  if (!turn) writer_->setTransform(input_.pictures->preferredTransform());
  chooseSound();
  movie_->enableSynchronizedEncodingUsingMovieWriter(writer_);
}

void Transcoding::work(const Interruption& interruption) {
  writer_->setCompletionBlock([this] { isOver_ = true; });
  writer_->startRecording();
  // The new movie's time line is the old one's, whichever of pictures and sound come first.
  writer_->assetWriter()->startSessionAtSourceTime(MediaTime::zero());
  const auto reading = DispatchQueue::create("org.tavrel.tool.movie");
  reading->async([this] { movie_->startProcessing(); });
  ProgressBar progress;
  constexpr std::chrono::milliseconds kStep(50);
  while (!isOver_ && !interruption.isAskedFor() && !isBrokenOff()) {
    RunLoop::main().runUntil([this] { return isOver_.load(); }, kStep);
    progress.show(movie_->progress(), fmt::format("{} frames", frameCounter_->count.load()));
  }
  if (!isOver_) movie_->cancelProcessing();
  reading->sync([] {});
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
                              .askedSize = writer_->maximumOutputSize(),
                              .size = writer_->encodedSize(),
                              .seconds = writer_->duration().seconds(),
                              .frames = writer_->writtenVideoFrames(),
                              .framesRead = frameCounter_->count.load(),
                              .sound = soundTreatment_};
  return movie.report(printJson, diagnostics);
}

}  // namespace tavrel::tool
