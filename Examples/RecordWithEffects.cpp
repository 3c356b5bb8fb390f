// Records camera and microphone, with smooth skin and a sticker in the corner.
//   RecordWithEffects MOVIE.mov SECONDS [STICKER.png]
#include <fmt/format.h>

#include <cstdlib>

#include "TavrelCaptureBase.h"

using namespace tavrel;

namespace {

constexpr Size kSize = {640, 480};

/// Hands what camera and microphone make to the movie.
class Recorder : public TavrelCameraDelegate, public TavrelMicrophoneDelegate {
 public:
  explicit Recorder(const std::filesystem::path& file)
      : writer(std::make_shared<TavrelGPUImageMovieWriter>(file, kSize)) {
    writer->setHasAudioTrack(true);
    writer->startRecording();
  }

  // On the video-processing queue.
  void didGetProcessedFramebuffer(TavrelCamera&, const std::shared_ptr<TavrelGPUImageFramebuffer>& frame,
                                  const SampleTiming& timing) override {
    writer->setInputFramebuffer(frame, 0);
    writer->newFrameReadyAtTime(timing.presentationTimeStamp, 0);
    hasBegun_ = true;
  }
  // On the main thread. The movie begins with a picture.
  void didGetProcessedSampleBuffer(TavrelMicrophone&, const std::shared_ptr<SampleBuffer>& sound) override {
    if (hasBegun_) writer->processAudioBuffer(sound);
  }

  const std::shared_ptr<TavrelGPUImageMovieWriter> writer;

 private:
  std::atomic<bool> hasBegun_ = false;
};

int fail(const std::string& reason) {
  fmt::print(stderr, "{}\n", reason);
  return 1;
}

Expected<std::vector<std::shared_ptr<TavrelCaptureEffect>>> makeEffects(const char* stickerFile) {
  const auto beauty = std::make_shared<TavrelFaceBeautyCaptureEffect>();
  beauty->setBeautyLevel(0.7);
  std::vector<std::shared_ptr<TavrelCaptureEffect>> effects = {beauty};
  if (!stickerFile) return effects;
  const auto source = ImageSource::createWithFile(stickerFile);
  const auto image = source.and_then([](const auto& file) { return file->imageAtIndex(0); });
  if (!image) return tl::unexpected(image.error());
  const auto sticker = std::make_shared<TavrelImageStickerCaptureEffect>();
  sticker->setImage(*image);
  sticker->setDestRect({{20, 20}, {120, 120}});
  effects.push_back(sticker);
  return effects;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 3) return fail("usage: RecordWithEffects MOVIE.mov SECONDS [STICKER.png]");
  const auto effects = makeEffects(argc > 3 ? argv[3] : nullptr);
  if (!effects) return fail(effects.error().description);

  TavrelCameraConfiguration configuration;
  configuration.size = kSize;
  configuration.preferredSessionPreset = kCaptureSessionPresetMedium;
  configuration.captureEffects = *effects;
  const auto camera = TavrelCamera::create(configuration);
  if (!camera) return fail(camera.error().description);
  const auto microphone = TavrelMicrophone::create({});
  if (!microphone) return fail(microphone.error().description);

  const auto recorder = std::make_shared<Recorder>(argv[1]);
  if (const auto error = recorder->writer->error()) return fail(error->description);
  (*camera)->setDelegate(recorder);
  (*microphone)->setDelegate(recorder);
  (*microphone)->startWithCompletion({});
  (*camera)->startWithCompletion({});
  RunLoop::main().runFor(std::chrono::milliseconds(static_cast<int>(std::atof(argv[2]) * 1000)));
  (*camera)->stop();
  (*microphone)->stop();

  TavrelRunSynchronouslyOnVideoProcessingQueue([] {});  // the last frame has passed the graph
  DispatchSemaphore finished(0);
  recorder->writer->finishRecordingWithCompletionHandler([&] { finished.signal(); });
  finished.wait();
  if (const auto error = recorder->writer->error()) return fail(error->description);
  const auto statistics = (*camera)->statistics();
  fmt::print("{} frames, {} dropped\n", statistics.processed, statistics.dropped());
}
