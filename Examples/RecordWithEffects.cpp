// Records camera and microphone, with smooth skin and a sticker in the corner, and shows them in a window where there
// is a display.
//   RecordWithEffects MOVIE.mov SECONDS STICKER.png
#include <fmt/format.h>

#include <cstdlib>

#include "TavrelCaptureBase.h"

using namespace tavrel;

namespace {

int fail(const std::string& reason) {
  fmt::print(stderr, "{}\n", reason);
  return 1;
}

int report(const TavrelRecording& movie) {
  if (movie.error) return fail(movie.error->description);
  fmt::print("{:.1f} s, {} frames, {} lost\n", movie.seconds, movie.statistics.framesWritten,
             movie.statistics.framesLost());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 4) return fail("usage: RecordWithEffects MOVIE.mov SECONDS STICKER.png");

  const bool hasDisplay = Application::shared().startUserInterface().has_value();  // before anything is drawn
  const auto beauty = std::make_shared<TavrelFaceBeautyCaptureEffect>();
  beauty->setBeautyLevel(0.7);
  const auto picture = ImageSource::createWithFile(argv[3]).and_then([](auto file) { return file->imageAtIndex(0); });
  if (!picture) return fail(picture.error().description);
  const auto sticker = std::make_shared<TavrelImageStickerCaptureEffect>();
  sticker->setImage(*picture);
  sticker->setDestRect({{20, 20}, {120, 120}});
  const auto recorder = TavrelRecorder::create({.size = {640, 480}, .effects = {beauty, sticker}});
  if (!recorder) return fail(recorder.error().description);
  const auto window = hasDisplay ? Window::create("Recording", {640, 480}).value() : nullptr;
  (*recorder)->previewView()->setFillsSuperview(true);
  if (window) window->rootView()->addSubview((*recorder)->previewView());
  if (const auto writing = (*recorder)->startWriting(argv[1]); !writing) return fail(writing.error().description);
  (*recorder)->startWithCompletion([](const auto& error) { error ? fail(error->description) : 0; });
  RunLoop::main().runFor(std::chrono::milliseconds(static_cast<int>(std::atof(argv[2]) * 1000)));
  (*recorder)->stop();
  std::optional<TavrelRecording> movie;
  (*recorder)->finishWritingWithCompletion([&](const auto& finished) { movie = *finished; });
  while (!movie) RunLoop::main().runFor(std::chrono::milliseconds(10));

  return report(*movie);
}
