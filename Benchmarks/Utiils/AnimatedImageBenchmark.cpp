// How long a player's call takes while frames are decoded behind it, and how many frames a second come out. The GIF has
// 1000 × 1000 pixels, all of them new in each frame, in runs of three on average.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <random>

#include "Platform/Dispatch/RunLoop.h"
#include "Tests/Support/EffectsGif.h"
#include "Tests/Support/ThreadTime.h"
#include "Utiils/TavrelAnimatedImage.h"

namespace tavrel {
namespace {

using Clock = std::chrono::steady_clock;
using Seconds = std::chrono::duration<double>;

constexpr int kSide = 1000;
constexpr std::size_t kFrames = 24;
constexpr std::size_t kCacheSize = 5;

std::shared_ptr<TavrelAnimatedImage> makeImage() {
  std::mt19937 random(1);
  std::vector<test::GifFrameSpec> frames(kFrames);
  for (test::GifFrameSpec& frame : frames) {
    char letter = 'r';
    for (int y = 0; y < kSide; ++y) {
      std::string& row = frame.rows.emplace_back();
      for (int x = 0; x < kSide; ++x) row += random() % 3 == 0 ? letter = "rgbwk"[random() % 5] : letter;
    }
  }
  return TavrelAnimatedImage::create(test::makeGif(kSide, kSide, frames), kCacheSize).value();
}

const std::shared_ptr<TavrelAnimatedImage>& sharedImage() {
  static const auto image = makeImage();
  return image;
}

/// The call alone, at a player's pace of 25 frames a second: between calls the main loop runs.
void callerTime(benchmark::State& state) {
  TavrelAnimatedImage& image = *sharedImage();
  std::size_t index = 0;
  std::size_t missed = 0;
  double processorTime = 0;
  std::vector<double> times;
  for (auto _ : state) {
    const double processorStart = test::threadTime();
    const auto start = Clock::now();
    const auto frame = image.imageLazilyCachedAtIndex(index % kFrames);
    times.push_back(Seconds(Clock::now() - start).count());
    processorTime += test::threadTime() - processorStart;
    state.SetIterationTime(times.back());
    missed += frame == nullptr;
    ++index;
    RunLoop::main().runFor(std::chrono::milliseconds(40));
  }
  std::sort(times.begin(), times.end());
  state.counters["median_us"] = times[times.size() / 2] * 1e6;
  state.counters["longest_us"] = times.back() * 1e6;
  state.counters["processor_us"] = processorTime / static_cast<double>(times.size()) * 1e6;
  state.counters["missed"] = static_cast<double>(missed);
  state.counters["cached_MB"] = static_cast<double>(image.cachedFrameIndexes().size()) * kSide * kSide * 4 / (1 << 20);
}
BENCHMARK(callerTime)->UseManualTime()->Iterations(100)->Unit(benchmark::kMicrosecond);

/// A player that takes each frame as soon as it is there.
void decodeAhead(benchmark::State& state) {
  TavrelAnimatedImage& image = *sharedImage();
  std::size_t index = 0;
  for (auto _ : state) {
    RunLoop::main().runUntil([&] { return image.imageLazilyCachedAtIndex(index % kFrames) != nullptr; },
                             std::chrono::seconds(5));
    ++index;
  }
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(decodeAhead)->UseRealTime()->Unit(benchmark::kMillisecond);

/// One frame after the other on the caller's thread, as the sticker takes them.
void decodeInOrder(benchmark::State& state) {
  TavrelAnimatedImage& image = *sharedImage();
  std::size_t index = 0;
  for (auto _ : state) benchmark::DoNotOptimize(image.imageAtIndex(index++ % kFrames));
  state.SetItemsProcessed(state.iterations());
}
BENCHMARK(decodeInOrder)->UseRealTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace tavrel

BENCHMARK_MAIN();
