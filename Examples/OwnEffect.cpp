// An effect of one's own, on a picture, a movie and a camera.
//   OwnEffect PICTURE.png OUT.png MOVIE.mov OUT.mov SNAPSHOT.png
#include "TavrelCaptureBase.h"

using namespace tavrel;
/// Makes frames warmer.
class Warmth : public TavrelCaptureEffect {
 public:
  std::shared_ptr<TavrelCaptureEffect> copy() const override { return std::make_shared<Warmth>(*this); }
  TavrelCaptureEffectNodes makeNodes(Size) override {
    const auto filter = std::make_shared<TavrelGPUImageFilter>(
        "varying highp vec2 textureCoordinate; uniform sampler2D inputImageTexture; uniform lowp float warmth;"
        "void main() { gl_FragColor = texture2D(inputImageTexture, textureCoordinate) + vec4(warmth, 0, -warmth, 0); "
        "}");
    filter->setFloat(warmth_, "warmth");
    return {.filters = {filter}, .pictures = {}};
  }
  // A camera that runs makes the nodes anew; see `applyChange` for nodes that only take another value.
  void setWarmth(float warmth) { changeProperty(warmth_, warmth, "warmth"); }

 private:
  float warmth_ = 0.25;
};

int main(int argc, char** argv) {
  if (argc < 6) return 2;
  const auto effect = std::make_shared<Warmth>();
  TavrelCaptureEffectChain chain({effect});
  const auto picture = std::make_shared<TavrelGPUImagePicture>(std::filesystem::path(argv[1]));
  const auto last = chain.connect(picture, picture->outputImageSize());
  last->useNextFrameForImageCapture();
  picture->processImage();
  bool isGood = ImageDestination::write(last->newCGImageFromCurrentlyProcessedOutput(), argv[2]).has_value();

  const auto movie = std::make_shared<TavrelGPUImageMovie>(std::filesystem::path(argv[3]));
  const auto writer = std::make_shared<TavrelGPUImageMovieWriter>(argv[4], Size{640, 480});
  DispatchSemaphore isOver(0);
  writer->setCompletionBlock([&] { isOver.signal(); });
  chain.connect(movie, {640, 480})->addTarget(writer);
  writer->setEncodingLiveVideo(false);
  writer->startRecording();
  movie->startProcessing();
  isOver.wait();
  writer->finishRecording();

  const auto camera = TavrelCamera::create({.size = {640, 480}, .captureEffects = {effect}}).value();
  camera->startWithCompletion({});
  RunLoop::main().runUntil([&] { return camera->statistics().processed > 1; }, std::chrono::seconds(20));
  effect->setWarmth(0.5);
  camera->snapshotWithCompletion([&](const std::shared_ptr<Image>& image, const std::optional<Error>&) {
    isGood = isGood && ImageDestination::write(image, argv[5]);
    isOver.signal();
  });
  isOver.wait();
  return isGood ? 0 : 1;
}
