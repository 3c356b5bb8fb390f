// Camera and microphone through their classes for a long time: does anything grow, stay locked or stand still?
//
//     CaptureSoak recording SECONDS   records so much time, as fast as this machine can, on a clock without real time
//     CaptureSoak live SECONDS        records in real time; effects change every second, cameras every seven
//     CaptureSoak starts COUNT        starts and stops both, recording every fifth time
//     CaptureSoak switches COUNT      switches between front and back, with and without blur
//     CaptureSoak offset SECONDS      records in real time and measures how far flash and beep lie apart
//
// Ends with status 1 when memory, threads or file descriptors grow, or when a framebuffer is still held at the end.

#include <malloc.h>

#include <cstdio>
#include <cstring>
#include <functional>
#include <numeric>
#include <random>
#include <string>
#include <utility>
#include <vector>

#include "HoldingsCourse.h"
#include "Platform/UI/Screen.h"
#include "Support/Comparison.h"
#include "Support/EffectsGif.h"
#include "Support/RecorderTestSupport.h"
#include "Support/RecordingObservation.h"
#include "TavrelCaptureBase.h"
#include "TavrelCaptureTesting.h"

namespace tavrel::benchmarks {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;
using Effects = TavrelCamera::CaptureEffects;

constexpr Size kSize = {320, 240};
/// How long anything may take before it counts as stuck.
constexpr std::chrono::seconds kPatience(60);

double elapsedSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

void waitFor(const std::function<bool()>& done, const char* what) {
  require(RunLoop::main().runUntil(done, kPatience), what);
}

std::shared_ptr<TavrelRecorder> makeRecorder(const Effects& effects = {}) {
  Screen::main().setMode(kSize, 60);
  auto recorder = TavrelRecorder::create({.size = kSize, .effects = effects}).value();
  recorder->camera()->setMirrorFrontPreview(false);
  return recorder;
}

void start(TavrelRecorder& recorder) { require(test::startDevices(recorder), "starting"); }

void write(TavrelRecorder& recorder, const std::filesystem::path& movie, const Dictionary& settings = {}) {
  require(recorder.startWriting(movie, {.settings = settings}).has_value(), "starting a movie");
}

TavrelRecording finish(TavrelRecorder& recorder) {
  auto recording = test::finishMovie(recorder);
  require(recording && !recording->error, "finishing a movie");
  return std::move(*recording);
}

std::uint64_t processed(const TavrelRecorder& recorder) { return recorder.camera()->statistics().processed; }

void waitForFrames(const TavrelRecorder& recorder, std::uint64_t count) {
  waitFor([&, until = processed(recorder) + count] { return processed(recorder) >= until; }, "waiting for frames");
}

class TemporaryMovie {
 public:
  TemporaryMovie() {
    char folder[] = "/tmp/tavrel-soak-XXXXXX";
    require(mkdtemp(folder), "a temporary folder");
    folder_ = folder;
  }
  ~TemporaryMovie() { std::filesystem::remove_all(folder_); }
  std::filesystem::path path() const { return folder_ / "movie.mov"; }

 private:
  std::filesystem::path folder_;
};

std::shared_ptr<Image> plainImage(std::size_t width, std::size_t height, std::uint32_t color) {
  Data bytes(width * height * 4);
  for (std::size_t i = 0; i < bytes.size(); i += 4) std::memcpy(&bytes[i], &color, 4);
  return Image::create(width, height, 8, 32, width * 4, kBitmapPremultipliedBGRA,
                       DataProvider::create(std::move(bytes)));
}

Effects allEffects() {
  const auto sticker = std::make_shared<TavrelImageStickerCaptureEffect>();
  sticker->setImage(plainImage(64, 48, 0xff3050d0));
  sticker->setDestRect({{20, 60}, {60, 50}});
  const auto table = std::make_shared<TavrelLUTFilterCaptureEffect>();
  table->setImage(plainImage(512, 512, 0xff808080));
  const test::GifFrameSpec red = {.rows = std::vector(32, std::string(32, 'r'))};
  const test::GifFrameSpec blue = {.rows = std::vector(32, std::string(32, 'b'))};
  const auto animated = TavrelAnimatedStickerCaptureEffect::create(test::makeGif(32, 32, {red, blue}, 0)).value();
  animated->setDestRect({{200, 100}, {50, 50}});
  return {table, sticker, animated, std::make_shared<TavrelFaceBeautyCaptureEffect>()};
}

/// A change that an application makes between two frames.
void changeEffects(TavrelCamera& camera, const Effects& all, std::mt19937& random) {
  switch (random() % 4) {
    case 0: {  // others, in another order
      Effects some = all;
      std::shuffle(some.begin(), some.end(), random);
      some.resize(random() % (all.size() + 1));
      return camera.setCaptureEffects(some);
    }
    case 1:  // another picture
      std::dynamic_pointer_cast<TavrelImageStickerCaptureEffect>(all[1])->setImage(
          plainImage(32 + random() % 64, 32 + random() % 64, 0xff000000 | random()));
      return;
    case 2:
      std::dynamic_pointer_cast<TavrelFaceBeautyCaptureEffect>(all[3])->setBeautyLevel(random() % 100 / 100.0);
      return;
    default:
      std::dynamic_pointer_cast<TavrelImageStickerCaptureEffect>(all[1])->setDestRect(
          {{random() % 200 * 1.0, random() % 150 * 1.0}, {60, 50}});
      camera.setMirrorBackEncoded(random() % 2 == 0);
  }
}

/// Makes what stays for the life of the process.
void warmUp() {
  const TemporaryMovie movie;
  const auto recorder = makeRecorder(allEffects());
  write(*recorder, movie.path());
  start(*recorder);
  waitForFrames(*recorder, 3);
  recorder->camera()->switchCamera();
  waitForFrames(*recorder, 3);
  finish(*recorder);
}

bool recording(int seconds) {
  HoldingsCourse course("recording", seconds);
  const TemporaryMovie movie;
  auto clock = std::make_shared<FastClock>();
  VirtualCaptureSystem::shared().setClock(clock);
  const auto begun = Clock::now();
  {
    const auto recorder = makeRecorder({allEffects()[1], allEffects()[2]});
    write(*recorder, movie.path(), {{kTavrelEncodingLiveVideoKey, false}, {kVideoPresetKey, std::string("ultrafast")}});
    start(*recorder);
    const MediaTime start = clock->now();
    // Sound is stamped in its time, and frames hardly later than in theirs.
    constexpr std::int64_t kStep = 256;  // of a buffer of the virtual microphone
    std::uint64_t taken = 0;
    for (std::int64_t step = 1; step * kStep < std::int64_t{seconds} * 48000; ++step) {
      require(clock->runUntil(start + MediaTime::make(step * kStep, 48000), kPatience), "passing time");
      RunLoop::main().drain();
      // Frames that are due are taken before time goes on, else they would be dropped as on a machine too slow.
      const auto due = static_cast<std::uint64_t>(step * kStep * 30 / 48000 + 1);
      if (due > taken) {
        waitFor([&] { return recorder->camera()->statistics().delivered >= due; }, "taking a frame");
        TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
        taken = due;
      }
      course.note(static_cast<double>(step * kStep) / 48000);
    }
    const TavrelRecording recorded = finish(*recorder);
    const auto statistics = recorder->camera()->statistics();
    std::printf("recording: %d s in %.0f s, %llu frames delivered, %llu recorded, %llu dropped; %.1f MiB\n", seconds,
                elapsedSince(begun), static_cast<unsigned long long>(statistics.delivered),
                static_cast<unsigned long long>(recorded.statistics.framesWritten),
                static_cast<unsigned long long>(statistics.dropped()),
                static_cast<double>(std::filesystem::file_size(movie.path())) / 1048576);
  }
  VirtualCaptureSystem::shared().reset();
  return course.judge(3600, "an hour of the recording");
}

bool live(int seconds) {
  HoldingsCourse course("live", seconds);
  const TemporaryMovie movie;
  std::mt19937 random(1);
  {
    const Effects all = allEffects();
    const auto recorder = makeRecorder(all);
    write(*recorder, movie.path());
    start(*recorder);
    const auto begun = Clock::now();
    for (int second = 1; elapsedSince(begun) < seconds; ++second) {
      const std::uint64_t before = processed(*recorder);
      RunLoop::main().runUntil([&] { return elapsedSince(begun) >= second; }, 2s);
      waitFor([&] { return processed(*recorder) > before; }, "showing a frame");
      changeEffects(*recorder->camera(), all, random);
      if (second % 7 == 0) recorder->camera()->switchCamera();
      course.note(elapsedSince(begun));
    }
    const TavrelRecording recorded = finish(*recorder);
    const auto statistics = recorder->camera()->statistics();
    std::printf("live: %d s, %llu frames delivered, %llu recorded, %llu late, %llu busy, %llu while switching\n",
                seconds, static_cast<unsigned long long>(statistics.delivered),
                static_cast<unsigned long long>(recorded.statistics.framesWritten),
                static_cast<unsigned long long>(statistics.late), static_cast<unsigned long long>(statistics.busy),
                static_cast<unsigned long long>(statistics.whileSwitching));
  }
  return course.judge(3600, "an hour");
}

bool starts(int count) {
  HoldingsCourse course("starts", count);
  const auto begun = Clock::now();
  {
    auto recorder = makeRecorder(allEffects());
    for (int cycle = 0; cycle < count; ++cycle) {
      if (cycle % 50 == 25) recorder = makeRecorder(allEffects());
      const TemporaryMovie movie;
      if (cycle % 5 == 0) write(*recorder, movie.path());
      start(*recorder);
      waitForFrames(*recorder, 2);
      recorder->stop();
      if (recorder->isWriting()) finish(*recorder);
      course.note(cycle);
    }
  }
  std::printf("starts: %d in %.0f s\n", count, elapsedSince(begun));
  return course.judge(100, "for 100 starts");
}

bool switches(int count) {
  HoldingsCourse course("switches", count);
  const auto begun = Clock::now();
  {
    const auto recorder = makeRecorder(allEffects());
    start(*recorder);
    for (int cycle = 0; cycle < count; ++cycle) {
      recorder->camera()->setBlurSwitch(cycle % 2 == 0);
      recorder->camera()->switchCamera();
      // Every tenth pair comes within the blur.
      if (cycle % 20 >= 2) waitForFrames(*recorder, 2);
      course.note(cycle);
    }
    waitForFrames(*recorder, 2);
    recorder->stop();
  }
  std::printf("switches: %d in %.0f s\n", count, elapsedSince(begun));
  return course.judge(100, "for 100 switches");
}

bool offset(int seconds) {
  const TemporaryMovie movie;
  const auto recorder = makeRecorder();
  write(*recorder, movie.path());
  start(*recorder);
  RunLoop::main().runFor(std::chrono::seconds(seconds));
  const TavrelRecording recorded = finish(*recorder);
  const auto seen = test::RecordingObservation::of(movie.path());
  require(seen.error.empty(), seen.error.c_str());
  const auto offsets = seen.offsets();
  require(offsets.size() > 4, "finding flashes with their beeps");

  const auto meanOf = [&](auto first, auto last) {
    const double sum =
        std::accumulate(first, last, 0.0, [](double total, const auto& each) { return total + each.seconds; });
    return sum * 1000 / static_cast<double>(last - first);
  };
  const auto quarter = static_cast<std::ptrdiff_t>(offsets.size() / 4);
  double largest = 0;
  std::vector<std::pair<double, double>> points;
  for (const auto& each : offsets) {
    points.emplace_back(each.at, each.seconds);
    largest = std::max(largest, std::abs(each.seconds));
  }
  std::printf(
      "offset: beep after flash %+.1f ms in the first quarter, %+.1f ms in the last, largest %.1f ms, drift %+.2f ms a "
      "minute\n",
      meanOf(offsets.begin(), offsets.begin() + quarter), meanOf(offsets.end() - quarter, offsets.end()),
      largest * 1000, leastSquaresSlope(points) * 60000);
  std::printf("offset: %zu frames in the file, %llu processed less %llu that the writer dropped\n",
              seen.frameTimes.size(), static_cast<unsigned long long>(processed(*recorder)),
              static_cast<unsigned long long>(recorded.statistics.lostInWriter));
  return largest <= 0.020;
}

}  // namespace
}  // namespace tavrel::benchmarks

int main(int argc, char** argv) {
  using namespace tavrel::benchmarks;
  struct Run {
    const char* name;
    bool (*run)(int amount);
  };
  constexpr Run kRuns[] = {
      {"recording", recording}, {"live", live}, {"starts", starts}, {"switches", switches}, {"offset", offset}};
  const int amount = argc == 3 ? std::atoi(argv[2]) : 0;
  setenv("TAVREL_CAPTURE", "virtual", 1);
  // One heap for all threads: threads that come and go would fill others bit by bit, which looks like a leak for a
  // while.
  if (!std::getenv("MALLOC_ARENA_MAX")) mallopt(M_ARENA_MAX, 1);
  tavrel::TavrelLogger::setLogLevel(1);
  for (const Run& each : kRuns) {
    if (amount <= 0 || std::strcmp(argv[1], each.name) != 0) continue;
    warmUp();
    return each.run(amount) ? 0 : 1;
  }
  std::fprintf(stderr, "usage: CaptureSoak recording|live|starts|switches|offset AMOUNT\n");
  return 2;
}
