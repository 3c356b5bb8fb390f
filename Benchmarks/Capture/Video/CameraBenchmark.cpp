// The camera's whole chain against the same upload and the same draws in bare GL, in one process. A frame goes through
// crop, beauty, lookup table, a still and an animated sticker; the encoded branch is handed to the delegate, the
// preview branch is mirrored and drawn into the view.

#include <chrono>
#include <vector>

#include "BareSide.h"
#include "CameraSide.h"
#include "Support/Comparison.h"
#include "Support/ResourceCount.h"

namespace tavrel::benchmarks {
namespace {

using Clock = std::chrono::steady_clock;

/// Whether both made the same picture, where all effects but the stickers' edges show.
void requireSamePicture(CameraSide& camera, BareSide& bare) {
  camera.receiver->waitsForPicture = camera.receiver->readsCenter = true;
  for (std::size_t i = 0; i < kPictures; ++i) {
    camera.frame();
    std::array<std::uint8_t, 4> limit{};
    TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
      bare.frame(*camera.frames()[i]);
      limit = bare.encodedPixel();
    });
    require(camera.receiver->pixel == limit && limit[3] != 0, "drawing the same by hand and by the camera");
  }
  camera.receiver->waitsForPicture = camera.receiver->readsCenter = false;
}

void countResources(benchmark::State& state, CameraSide& camera, const std::function<void()>& drawBare) {
  constexpr int kFrames = 40;
  const auto perFrame = [](const std::function<void()>& frame) {
    const ResourceCount before = ResourceCount::now();
    for (int i = 0; i < kFrames; ++i) frame();
    return ResourceCount::now() - before;
  };
  const ResourceCount bare = perFrame(drawBare);
  const ResourceCount own = perFrame([&] { camera.frame(); });
  state.counters["gl_objects"] = static_cast<double>(own.glObjects) / kFrames;
  state.counters["large_buffers"] = static_cast<double>(own.largeBuffers) / kFrames;
  state.counters["limit_large_buffers"] = static_cast<double>(bare.largeBuffers) / kFrames;
}

/// From the delivery until the delegate is called, and until its picture is complete, in times of the bare draws.
void measureLatency(benchmark::State& state, CameraSide& camera, const std::function<void()>& drawBare) {
  constexpr int kFrames = 200;
  std::vector<double> bare, called, drawn;
  camera.receiver->waitsForPicture = true;
  for (int i = 0; i < kFrames; ++i) {
    const auto start = Clock::now();
    drawBare();
    bare.push_back(millisecondsSince(start));
    camera.frame();
    called.push_back(camera.receiver->called);
    drawn.push_back(camera.receiver->drawn);
  }
  camera.receiver->waitsForPicture = false;
  const double unit = quantile(bare, 0.5);
  state.counters["called_p50"] = quantile(called, 0.5) / unit;
  state.counters["called_p99"] = quantile(called, 0.99) / unit;
  state.counters["drawn_p50"] = quantile(drawn, 0.5) / unit;
  state.counters["drawn_p99"] = quantile(drawn, 0.99) / unit;
  state.counters["limit_p99"] = quantile(bare, 0.99) / unit;
}

void camera(benchmark::State& state) {
  const Layout layout({static_cast<double>(state.range(0)), static_cast<double>(state.range(1))});
  CameraSide camera(layout);
  std::unique_ptr<BareSide> bare;
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] { bare = std::make_unique<BareSide>(layout); });
  std::size_t number = 0;
  const auto drawBare = [&] {
    TavrelRunSynchronouslyOnVideoProcessingQueue([&] { bare->frame(*camera.frames()[number++ % kPictures]); });
  };
  for (auto iteration : state) {
    requireSamePicture(camera, *bare);
    const std::uint64_t before = camera.processed();
    report(state, compare(31, 2, drawBare, [&] { camera.frame(); }));
    require(camera.processed() - before == 31 * 2 + 2, "taking every frame");
    countResources(state, camera, drawBare);
    measureLatency(state, camera, drawBare);
  }
}
BENCHMARK(camera)
    ->Args({640, 480})
    ->Args({1280, 720})
    ->ArgNames({"width", "height"})
    ->Iterations(1)
    ->UseManualTime()
    ->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace tavrel::benchmarks

BENCHMARK_MAIN();
