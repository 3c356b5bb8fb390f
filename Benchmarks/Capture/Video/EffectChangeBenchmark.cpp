// How long frames take in the second after a camera's effects change, from their arrival to the end of their drawing,
// as a share of what they take when all is quiet again: with a driver's cache that is empty at first, so that each
// program is new.

#include <cstdlib>
#include <filesystem>
#include <mutex>

#include "Capture/Video/CameraScene.h"
#include "Platform/Capture/CaptureClock.h"
#include "Support/Comparison.h"
#include "TavrelCaptureTesting.h"

namespace tavrel::benchmarks {
namespace {

using namespace std::chrono_literals;
using Effects = std::vector<std::shared_ptr<TavrelCaptureEffect>>;

class FrameTimes : public TavrelCameraDelegate {
 public:
  void didGetProcessedFramebuffer(TavrelCamera&, const std::shared_ptr<TavrelGPUImageFramebuffer>& framebuffer,
                                  const SampleTiming& timing) override {
    framebuffer->pixelBuffer();  // drawn to the end
    const std::lock_guard lock(mutex_);
    milliseconds_.push_back((CaptureClock::current()->now() - timing.presentationTimeStamp).seconds() * 1000);
  }
  std::vector<double> take() {
    const std::lock_guard lock(mutex_);
    return std::exchange(milliseconds_, {});
  }

 private:
  std::mutex mutex_;
  std::vector<double> milliseconds_;
};

std::shared_ptr<Image> imageOf(const Pixels& pixels, std::size_t side) {
  const auto* const bytes = reinterpret_cast<const std::uint8_t*>(pixels.data());
  return Image::create(side, side, 8, 32, side * 4, kBitmapPremultipliedBGRA,
                       DataProvider::create(Data(bytes, bytes + pixels.size() * 4)));
}

/// Chains none of whose programs is in another.
std::vector<Effects> changes(Size size) {
  const Layout layout(size);
  const auto sticker = [&](const Rect& place) {
    auto effect = std::make_shared<TavrelImageStickerCaptureEffect>();
    effect->setImage(imageOf(stickerPixels(), kStickerSide));
    effect->setDestRect(place);
    return effect;
  };
  const auto table = std::make_shared<TavrelLUTFilterCaptureEffect>();
  table->setImage(imageOf(tablePixels(), kTableSide));
  const auto beauty = std::make_shared<TavrelFaceBeautyCaptureEffect>();
  return {{sticker(layout.still)},
          {table, sticker(layout.still), sticker(layout.animated)},
          {beauty, table},
          {beauty, sticker(layout.still), table, sticker(layout.animated)}};
}

void effectChange(benchmark::State& state) {
  const Size size = {static_cast<double>(state.range(0)), static_cast<double>(state.range(1))};
  const auto times = std::make_shared<FrameTimes>();
  TavrelCameraConfiguration configuration;
  configuration.size = size;
  configuration.preferredSessionPreset = std::to_string(state.range(0)) + "x" + std::to_string(state.range(1));
  configuration.preferredDevicePosition = CaptureDevicePosition::back;
  configuration.mirrorFrontPreview = false;
  for (auto iteration : state) {
    const auto camera = TavrelCamera::create(configuration).value();
    camera->setDelegate(times);
    camera->startWithCompletion({});
    RunLoop::main().runFor(1s);
    // The second time there is nothing to compile: as good as it can be.
    for (const char* const round : {"new", "known"}) {
      std::vector<double> ratios, calls;
      double lost = 0;
      for (const Effects& effects : changes(size)) {
        times->take();
        const auto before = camera->statistics();
        const auto start = std::chrono::steady_clock::now();
        camera->setCaptureEffects(effects);
        calls.push_back(millisecondsSince(start));
        RunLoop::main().runFor(1s);
        const auto after = camera->statistics();
        const std::vector<double> frames = times->take();
        RunLoop::main().runFor(1s);
        ratios.push_back(quantile(frames, 0.99) / quantile(times->take(), 0.5));
        lost += static_cast<double>(after.busy + after.late + after.whileSwitching - before.busy - before.late -
                                    before.whileSwitching);
      }
      const std::string name(round);
      state.counters[name + "_p99_of_median"] = quantile(ratios, 0.5);
      state.counters[name + "_lost"] = lost;
      state.counters[name + "_call_ms"] = quantile(calls, 0.5);
      if (name == "new") state.SetIterationTime(quantile(calls, 0.5) / 1000);
    }
    camera->stop();
  }
}
BENCHMARK(effectChange)
    ->Args({640, 480})
    ->ArgNames({"width", "height"})
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace tavrel::benchmarks

int main(int argc, char** argv) {
  std::string folder = (std::filesystem::temp_directory_path() / "effect-change-XXXXXX").string();
  if (!mkdtemp(folder.data())) return 1;
  setenv("MESA_SHADER_CACHE_DIR", folder.c_str(), 1);
  setenv("TAVREL_CAPTURE", "virtual", 0);
  benchmark::Initialize(&argc, argv);
  benchmark::RunSpecifiedBenchmarks();
  std::filesystem::remove_all(folder);
}
