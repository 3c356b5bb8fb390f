// What an animated sticker costs a camera's frames: how long each frame of 30 a second is held up before it enters the
// graph, and by how much its way through the graph gets longer, against the same chain with a still sticker. Every two
// seconds the time jumps ahead, as it does after a pause.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <random>
#include <thread>

#include "TavrelCaptureBase.h"
#include "Tests/Support/EffectsGif.h"

namespace tavrel {
namespace {

using Clock = std::chrono::steady_clock;
using Milliseconds = std::chrono::duration<double, std::milli>;

constexpr Size kVideo = {640, 480};
constexpr auto kFrame = std::chrono::microseconds(33333);

/// Parts of the picture change, so that each frame needs those before it.
Data animation(int width, int height, int count) {
  return test::makeGif(width, height, test::randomGifFrames(1, width, height, count), 0);
}

double percentile(std::vector<double>& times, double part) {
  std::sort(times.begin(), times.end());
  return times[std::min(times.size() - 1, static_cast<std::size_t>(part * static_cast<double>(times.size())))];
}

void play(benchmark::State& state, TavrelCaptureEffect& effect) {
  TavrelCaptureEffectNodes nodes = effect.makeNodes(kVideo);
  for (const auto& picture : nodes.pictures) picture->processImage();
  std::vector<double> held, drawn;
  double seconds = 0;
  auto next = Clock::now();
  for (auto _ : state) {
    std::this_thread::sleep_until(next += kFrame);
    seconds += held.size() % 60 == 59 ? 7.7 : 1 / 30.0;
    const auto start = Clock::now();
    effect.prepareFrame(nullptr, {}, MediaTime::fromSeconds(seconds, 100000));
    const auto prepared = Clock::now();
    for (const auto& picture : nodes.pictures) picture->processImage();
    TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
    held.push_back(Milliseconds(prepared - start).count());
    drawn.push_back(Milliseconds(Clock::now() - prepared).count());
  }
  // The first ones wait for the compiler of shaders.
  for (auto* const times : {&held, &drawn}) times->erase(times->begin(), times->begin() + 10);
  for (const auto& [name, part] : {std::pair("50", 0.5), {"99.9", 0.999}}) {
    state.counters[std::string("held_ms_") + name] = percentile(held, part);
    state.counters[std::string("drawn_ms_") + name] = percentile(drawn, part);
  }
}

void animated(benchmark::State& state) {
  const auto effect = TavrelAnimatedStickerCaptureEffect::create(animation(static_cast<int>(state.range(0)),
                                                                           static_cast<int>(state.range(1)),
                                                                           static_cast<int>(state.range(2))))
                          .value();
  effect->setDestRect({{100, 100}, {200, 200}});
  play(state, *effect);
}
BENCHMARK(animated)->Args({480, 480, 600})->Args({1920, 1080, 60})->UseRealTime()->Iterations(1500);

void still(benchmark::State& state) {
  TavrelImageStickerCaptureEffect effect;
  const Data gif = animation(static_cast<int>(state.range(0)), static_cast<int>(state.range(1)), 1);
  effect.setImage(ImageSource::create(gif).value()->imageAtIndex(0).value());
  effect.setDestRect({{100, 100}, {200, 200}});
  play(state, effect);
}
BENCHMARK(still)->Args({480, 480})->Args({1920, 1080})->UseRealTime()->Iterations(1500);

}  // namespace
}  // namespace tavrel

BENCHMARK_MAIN();
