#include "Transcoding.h"

#include <unistd.h>

#include <array>
#include <cmath>
#include <csignal>
#include <utility>

#include "MovieOptions.h"

namespace tavrel::tool {
namespace {

volatile std::sig_atomic_t isInterrupted = 0;

void interrupt(int) {
  isInterrupted = 1;
}

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

std::filesystem::path temporaryName(const std::filesystem::path& output) {
  return output.parent_path() / fmt::format(".{}.{}.part", output.filename().string(), getpid());
}

}  // namespace

/// Counts the pictures that enter the graph, and has the effects prepare them.
class Transcoding::FrameCounter : public TavrelGPUImageMovieDelegate {
 public:
  explicit FrameCounter(const EffectChain& effects) : effects_(effects) {}

  std::shared_ptr<PixelBuffer> didOutputPixelBuffer(const std::shared_ptr<PixelBuffer>& pixelBuffer,
                                                    MediaTime time) override {
    ++count;
    return effects_.prepareFrame(
        pixelBuffer, {.duration = {}, .presentationTimeStamp = time, .decodeTimeStamp = MediaTime::invalid()}, time);
  }

  std::atomic<std::uint64_t> count = 0;

 private:
  const EffectChain& effects_;
};

Transcoding::Transcoding(Options options, EffectChain effects)
    : options_(std::move(options)), effects_(std::move(effects)), temporary_(temporaryName(options_.output)) {}

int Transcoding::run(bool printJson, Diagnostics& diagnostics) {
  if (const auto started = diagnostics.start(); !started) return fail("{}", started.error().description);
  const int status = perform(printJson, diagnostics);
  return diagnostics.finish(status, printJson);
}

int Transcoding::perform(bool printJson, Diagnostics& diagnostics) {
  if (const auto opened = openInput(); !opened) return fail("{}", opened.error().description);
  buildGraph();
  if (const auto error = writer_->error())
    return fail("cannot write {}: {}", options_.output.string(), error->description);

  isInterrupted = 0;
  std::signal(SIGINT, interrupt);
  std::signal(SIGTERM, interrupt);
  work();
  if (const auto reason = finish()) return fail("{}", *reason);

  std::error_code error;
  std::filesystem::rename(temporary_, options_.output, error);
  if (!error) return report(printJson, diagnostics);
  std::error_code ignored;
  std::filesystem::remove(temporary_, ignored);
  return fail("cannot write {}: {}", options_.output.string(), error.message());
}

Expected<void> Transcoding::openInput() {
  auto asset = Asset::create(options_.input, {.prefersPreciseDurationAndTiming = true});
  if (!asset) return tl::unexpected(asset.error());
  asset_ = std::move(*asset);
  const auto pictures = asset_->tracksWithMediaType(MediaType::video);
  if (pictures.empty()) {
    return failure("tavrel", 1, fmt::format("{} has no pictures, only sound", options_.input.string()));
  }
  pictures_ = pictures.front();
  const auto sounds = asset_->tracksWithMediaType(MediaType::audio);
  if (options_.hasSound && !sounds.empty()) sound_ = sounds.front();
  return {};
}

void Transcoding::chooseSound() {
  if (!sound_) return;
  const auto& stored = sound_->storedFormat();
  if (stored && AssetWriter::canStore(*stored, options_.fileType)) {
    writer_->setShouldPassthroughAudio(true);
    writer_->setHasAudioTrack(true);
    soundTreatment_ = "copied";
  } else {
    const std::int64_t channels = std::min(2, sound_->channelCount());
    writer_->setHasAudioTrack(true, Dictionary{{kAudioFormatIDKey, static_cast<std::int64_t>(kAudioFormatMPEG4AAC)},
                                               {kAudioNumberOfChannelsKey, channels},
                                               {kAudioSampleRateKey, static_cast<double>(sound_->sampleRate())},
                                               {kAudioEncoderBitRateKey, 96000 * channels}});
    soundTreatment_ = "encoded";
  }
  movie_->setAudioEncodingTarget(writer_);
}

void Transcoding::buildGraph() {
  movie_ = std::make_shared<TavrelGPUImageMovie>(asset_);
  frameCounter_ = std::make_shared<FrameCounter>(effects_);
  movie_->setDelegate(frameCounter_);
  movie_->setReverseVideo(options_.isReversed);
  movie_->setPlayAtActualSpeed(options_.isRealTime);

  // Effects are meant for the picture as it is seen, so it is turned before them.
  std::shared_ptr<TavrelGPUImageOutput> last = movie_;
  Size size = pictures_->naturalSize();
  const auto turn = uprightRotation(pictures_->preferredTransform());
  if (turn && *turn != kTavrelGPUImageNoRotation) {
    const auto upright = std::make_shared<TavrelGPUImageRotationFilter>(*turn);
    last->addTarget(upright);
    last = upright;
    size = upright->outputSizeFor(size);
  }
  last = effects_.connect(last, size);
  size = effects_.sizeAfter(size);
  const Size movieSize = options_.size.value_or(Size{std::floor(size.width), std::floor(size.height)});
  writer_ = std::make_shared<TavrelGPUImageMovieWriter>(
      temporary_, movieSize, options_.fileType,
      Dictionary{{kTavrelEncodingLiveVideoKey, false},
                 {kVideoCodecKey, std::string(kVideoCodecH264)},
                 {kVideoWidthKey, static_cast<std::int64_t>(movieSize.width)},
                 {kVideoHeightKey, static_cast<std::int64_t>(movieSize.height)}});
  const Rect part = options_.size ? centredPart(size, movieSize) : Rect{{0, 0}, {1, 1}};
  if (part.size.width < 1 - 1e-6 || part.size.height < 1 - 1e-6) {
    const auto crop = std::make_shared<TavrelGPUImageCropFilter>(part);
    last->addTarget(crop);
    last = crop;
  }
  last->addTarget(writer_);
  if (!turn) writer_->setTransform(pictures_->preferredTransform());
  chooseSound();
  movie_->enableSynchronizedEncodingUsingMovieWriter(writer_);
}

void Transcoding::work() {
  writer_->setCompletionBlock([this] { isOver_ = true; });
  writer_->startRecording();
  // The new movie's time line is the old one's, whichever of pictures and sound come first.
  writer_->assetWriter()->startSessionAtSourceTime(MediaTime::zero());
  const auto reading = DispatchQueue::create("org.tavrel.tool.movie");
  reading->async([this] { movie_->startProcessing(); });
  ProgressBar progress;
  constexpr std::chrono::milliseconds kStep(50);
  while (!isOver_ && !isInterrupted && !isBrokenOff()) {
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

std::optional<std::string> Transcoding::finish() {
  const auto giveUp = [this](std::string reason) {
    writer_->cancelRecording();
    std::error_code ignored;
    std::filesystem::remove(temporary_, ignored);
    return reason;
  };
  if (isInterrupted) return giveUp("interrupted");
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
  const std::string name = options_.output.string();
  const Size encoded = writer_->encodedSize();
  if (encoded != writer_->maximumOutputSize()) {
    say("the codec takes even sizes only: {:.0f}x{:.0f} is stored as {:.0f}x{:.0f}, its last row or column repeated",
        writer_->maximumOutputSize().width, writer_->maximumOutputSize().height, encoded.width, encoded.height);
  }
  const double seconds = writer_->duration().seconds();
  const std::uint64_t frames = frameCounter_->count;
  if (printJson) {
    fmt::print(
        "{{\"output\": {}, \"width\": {:.0f}, \"height\": {:.0f}, \"seconds\": {:.3f}, \"frames\": {}, "
        "\"sound\": \"{}\"{}}}\n",
        jsonString(name), encoded.width, encoded.height, seconds, frames, soundTreatment_, diagnostics.json());
  } else {
    fmt::print("{} {:.0f}x{:.0f}, {:.1f} s, {} frames, sound {}\n", name, encoded.width, encoded.height, seconds,
               frames, soundTreatment_);
  }
  return kSuccess;
}

}  // namespace tavrel::tool
