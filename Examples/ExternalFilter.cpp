// The application's own work on camera frames, before they enter the graph: here the CPU makes the middle unreadable.
// Takes one picture.
//   ExternalFilter PICTURE.png
#include <fmt/format.h>

#include <algorithm>

#include "TavrelCaptureBase.h"

using namespace tavrel;

namespace {

/// Replaces each block of the frame's middle by its first pixel.
class Mosaic : public TavrelExternalFilter {
 public:
  static std::shared_ptr<TavrelExternalFilter> sharedInstance() {
    static const auto instance = std::make_shared<Mosaic>();
    return instance;
  }

  // On the capture queue, for every frame. The buffer is changed in place; a new one could be returned as well.
  std::shared_ptr<PixelBuffer> processPixelBuffer(const std::shared_ptr<PixelBuffer>& frame,
                                                  const SampleTiming&) override {
    frame->lockBaseAddress(PixelBufferLock::readWrite);
    for (std::size_t y = frame->height() / 4; y < frame->height() * 3 / 4; ++y) {
      std::uint8_t* const row = frame->baseAddress() + y * frame->bytesPerRow();
      const std::uint8_t* const firstRow = frame->baseAddress() + y / kBlock * kBlock * frame->bytesPerRow();
      for (std::size_t x = frame->width() / 4; x < frame->width() * 3 / 4; ++x) {
        std::copy_n(firstRow + x / kBlock * kBlock * kBytesPerPixel, kBytesPerPixel, row + x * kBytesPerPixel);
      }
    }
    frame->unlockBaseAddress(PixelBufferLock::readWrite);
    return frame;
  }

 private:
  static constexpr std::size_t kBlock = 16;
  static constexpr std::size_t kBytesPerPixel = 4;
};

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) {
    fmt::print(stderr, "usage: ExternalFilter PICTURE.png\n");
    return 2;
  }
  const auto effect = std::make_shared<TavrelExternalFilterCaptureEffect>();
  effect->setExternalFilterClass(externalFilterClassOf<Mosaic>());

  TavrelCameraConfiguration configuration;
  configuration.size = {320, 240};
  configuration.preferredSessionPreset = kCaptureSessionPresetLow;
  configuration.captureEffects = {effect};
  const auto camera = TavrelCamera::create(configuration);
  if (!camera) {
    fmt::print(stderr, "{}\n", camera.error().description);
    return 1;
  }
  (*camera)->startWithCompletion({});
  const auto sawFrames = [&] { return (*camera)->statistics().processed >= 5; };
  if (!RunLoop::main().runUntil(sawFrames, std::chrono::seconds(20))) {
    fmt::print(stderr, "the camera delivers nothing\n");
    return 1;
  }

  Expected<void> written;
  DispatchSemaphore answered(0);
  (*camera)->snapshotWithCompletion([&](const std::shared_ptr<Image>& image, const std::optional<Error>& error) {
    written = image ? ImageDestination::write(image, argv[1]) : tl::unexpected(error.value_or(Error{}));
    answered.signal();
  });
  answered.wait();
  (*camera)->stop();
  if (written) return 0;
  fmt::print(stderr, "{}\n", written.error().description);
  return 1;
}
