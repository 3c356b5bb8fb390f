#include "WaysToLeave.h"

#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <thread>

#include "Support/GraphTestSupport.h"
#include "Support/LogTestSupport.h"
#include "TavrelCaptureBase.h"

namespace tavrel::test {
namespace {

using namespace std::chrono_literals;

int reportDescriptor = -1;

/// What every way ends in: says when, and leaves the process.
[[noreturn]] void leave() {
  const LeavingClock::time_point now = LeavingClock::now();
  if (write(reportDescriptor, &now, sizeof now) != sizeof now) _exit(1);
  std::exit(kLeavingStatus);  // NOLINT(concurrency-mt-unsafe): this is what is tested
}

/// Lets the main queue's blocks run for ever: another thread leaves.
[[noreturn]] void runMain() {
  for (;;) RunLoop::main().run();
}

/// A picture behind a filter that keeps software GL busy for a while.
struct Graph {
  std::shared_ptr<TavrelGPUImagePicture> picture =
      std::make_shared<TavrelGPUImagePicture>(imageOf(distinctPicture(320, 240)));
  std::shared_ptr<TavrelGPUImageGaussianBlurFilter> blur = std::make_shared<TavrelGPUImageGaussianBlurFilter>();

  Graph() {
    blur->setBlurRadiusInPixels(12);
    picture->addTarget(blur);
  }
};

std::shared_ptr<TavrelCamera> makeCamera() {
  TavrelCameraConfiguration configuration;
  configuration.size = {320, 240};
  configuration.preferredSessionPreset = "320x240";
  return TavrelCamera::create(configuration).value();
}

std::string moviePath() {
  return (std::filesystem::temp_directory_path() / ("tavrel.end." + std::to_string(getpid()) + ".mov")).string();
}

class LeavingDelegate : public TavrelCameraDelegate {
  void didGetProcessedFramebuffer(TavrelCamera&, const std::shared_ptr<TavrelGPUImageFramebuffer>&,
                                  const SampleTiming&) override {
    leave();
  }
};

class LeavingLogger : public TavrelDDAbstractLogger {
 public:
  void logMessage(const TavrelDDLogMessage&) override { leave(); }
  std::string loggerName() const override { return "leaving"; }
};

/// Uses the graph when the process's statics are destroyed.
struct LateUser {
  Graph graph;
  ~LateUser() {
    graph.picture->processImage();
    graph.blur->useNextFrameForImageCapture();
    graph.blur->newCGImageFromCurrentlyProcessedOutput();
    graph.picture->targets();
    graph.picture->removeAllTargets();
  }
};

void leaveWithWorkPending() {
  const auto graph = std::make_shared<Graph>();
  for (int i = 0; i < 200; ++i)
    TavrelRunAsynchronouslyOnVideoProcessingQueue([graph] { graph->picture->processImage(); });
  leave();
}

void leaveWhileThreadsFilter() {
  for (int i = 0; i < 3; ++i) {
    std::thread([] {
      const Graph graph;
      for (;;) graph.picture->processImage();
    }).detach();
  }
  std::this_thread::sleep_for(100ms);
  leave();
}

void leaveInFrameBlock() {
  const Graph graph;
  graph.blur->setFrameProcessingCompletionBlock([](TavrelGPUImageOutput&, MediaTime) { leave(); });
  graph.picture->processImage();
  runMain();
}

void leaveOnTheGlobalQueue() {
  const Graph graph;
  graph.picture->processImage();
  DispatchQueue::global()->async([] { leave(); });
  runMain();
}

void leaveInStartsCompletion() {
  static const auto camera = makeCamera();
  camera->startWithCompletion([](bool) { leave(); });
  runMain();
}

void leaveInSnapshotsCompletion() {
  const auto camera = makeCamera();
  camera->startWithCompletion([&](bool) {
    camera->snapshotWithCompletion([](const std::shared_ptr<Image>&, const std::optional<Error>&) { leave(); });
  });
  runMain();
}

void leaveInTheCamerasDelegate() {
  const auto delegate = std::make_shared<LeavingDelegate>();
  const auto camera = makeCamera();
  camera->setDelegate(delegate);
  camera->startWithCompletion(nullptr);
  runMain();
}

void leaveWithARunningCamera() {
  static const auto camera = makeCamera();
  camera->startWithCompletion(nullptr);
  RunLoop::main().runFor(300ms);
  leave();
}

/// Draws with a program that no driver's cache has.
class NewEffect : public TavrelCaptureEffect {
 public:
  std::shared_ptr<TavrelCaptureEffect> copy() const override { return std::make_shared<NewEffect>(); }
  TavrelCaptureEffectNodes makeNodes(Size) override {
    const auto filter = std::make_shared<TavrelGPUImageFilter>(
        "varying highp vec2 textureCoordinate; uniform sampler2D inputImageTexture; void main() { gl_FragColor = "
        "texture2D(inputImageTexture, textureCoordinate) * 0." +
        std::to_string(getpid()) + "; }");
    return {.filters = {filter}, .pictures = {}};
  }
};

/// Its chain is walked through, its programs are made on a thread of their own, or its frames are drawn.
template <int kMilliseconds>
void leaveWhileEffectsChange() {
  static const auto camera = makeCamera();
  camera->startWithCompletion(nullptr);
  RunLoop::main().runFor(300ms);
  camera->setCaptureEffects({std::make_shared<NewEffect>()});
  RunLoop::main().runFor(std::chrono::milliseconds(kMilliseconds));
  leave();
}

/// The libraries for movies are loaded, and libraries register the end of their statics.
template <int kMilliseconds>
void leaveWhileAWriterBegins() {
  std::thread([] {
    const auto path = moviePath();
    const auto writer = std::make_shared<TavrelGPUImageMovieWriter>(path, Size{320, 240});
    writer->startRecording();
    std::filesystem::remove(path);
  }).detach();
  std::this_thread::sleep_for(std::chrono::milliseconds(kMilliseconds));
  leave();
}

void leaveInTheWritersCompletion() {
  const Graph graph;
  const auto path = moviePath();
  const auto writer = std::make_shared<TavrelGPUImageMovieWriter>(path, Size{320, 240});
  graph.blur->addTarget(writer);
  writer->startRecording();
  graph.picture->processImage();
  writer->finishRecordingWithCompletionHandler([path] {
    std::filesystem::remove(path);
    leave();
  });
  runMain();
}

void leaveWhileABlockWaitsForMain() {
  TavrelRunAsynchronouslyOnVideoProcessingQueue([] { TavrelRunOnMainQueueWithoutDeadlocking([] {}); });
  DispatchQueue::global()->async([] { TavrelRunSynchronouslyOnVideoProcessingQueue([] {}); });
  std::this_thread::sleep_for(50ms);
  leave();
}

/// The writer is destroyed behind everything that it needs.
void leaveWithAStaticWriter() {
  static std::shared_ptr<TavrelGPUImageMovieWriter> writer;
  const Graph graph;
  const auto path = moviePath();
  writer = std::make_shared<TavrelGPUImageMovieWriter>(path, Size{320, 240});
  graph.blur->addTarget(writer);
  writer->startRecording();
  for (int i = 0; i < 5; ++i) graph.picture->processImage();
  TavrelRunSynchronouslyOnContextQueue(*writer->movieWriterContext(), [] {});
  std::filesystem::remove(path);
  leave();
}

/// Long before anything is drawn, or loaded.
void leaveWhileAThreadBegins() {
  std::thread([] {
    const Graph graph;
    for (;;) graph.picture->processImage();
  }).detach();
  leave();
}

/// The leaving thread never used the library, and the driver is at work for the first time.
template <int kMilliseconds>
void leaveDuringTheFirstDraws() {
  std::thread([] {
    std::this_thread::sleep_for(std::chrono::milliseconds(kMilliseconds));
    leave();
  }).detach();
  const Graph graph;
  for (int radius = 2;; ++radius) {
    graph.blur->setBlurRadiusInPixels(radius % 20);
    graph.picture->processImage();
  }
}

void leaveInABlockOfMain() {
  const Graph graph;
  graph.picture->processImage();
  DispatchQueue::main()->asyncAfter(20ms, [] { leave(); });
  runMain();
}

void leaveOnAThreadOfTheApplication() {
  std::thread([] {
    const Graph graph;
    graph.picture->processImage();
    leave();
  }).detach();
  runMain();
}

void leaveInALogger() {
  TavrelDDLog::addLogger(std::make_shared<LeavingLogger>());
  logText(false, TavrelDDLogFlagError, "the last");
}

void leaveOnTwoThreads() {
  const Graph graph;
  graph.picture->processImage();
  std::thread([] {
    DispatchQueue::global()->sync(
        [] { std::exit(kLeavingStatus); });  // NOLINT(concurrency-mt-unsafe): this is what is tested
  }).detach();
  leave();
}

void leaveAndUseTheGraphAfterwards() {
  static const LateUser user;
  user.graph.picture->processImage();
  leave();
}

void leaveInAChild() {
  const pid_t child = fork();
  if (child == 0) leave();
  int status = 0;
  waitpid(child, &status, 0);
  _exit(WIFEXITED(status) ? WEXITSTATUS(status) : 1);
}

/// A child has the graph's memory and none of its threads.
void leaveInAForkedChild() {
  const Graph graph;
  for (int i = 0; i < 20; ++i) TavrelRunAsynchronouslyOnVideoProcessingQueue([&] { graph.picture->processImage(); });
  leaveInAChild();
}

/// Their threads could not join themselves, and of some not even the stack is left in the child.
void leaveInAForkedChildOfQueuesThatEndedThemselves() {
  for (int i = 0; i < 24; ++i) {
    const auto queue = DispatchQueue::create("short");
    queue->async([queue] {});
  }
  std::this_thread::sleep_for(50ms);
  leaveInAChild();
}

/// Sleeping blocks cannot be stopped, and are no reason to stay.
void leaveWhileABlockSleeps() {
  const auto queue = DispatchQueue::create("sleeper");
  queue->async([] { std::this_thread::sleep_for(1min); });
  TavrelRunAsynchronouslyOnVideoProcessingQueue([] { std::this_thread::sleep_for(1min); });
  std::this_thread::sleep_for(20ms);
  leave();
}

constexpr WayToLeave kWays[] = {
    {"main, work pending", leaveWithWorkPending},
    {"main, threads filter on", leaveWhileThreadsFilter},
    {"main, a camera runs", leaveWithARunningCamera},
    {"main, a camera's effects change", leaveWhileEffectsChange<0>},
    {"main, a camera's programs are made", leaveWhileEffectsChange<40>},
    {"main, a camera's programs are nearly made", leaveWhileEffectsChange<150>},
    {"main, the libraries for movies are loaded", leaveWhileAWriterBegins<10>},
    {"main, a writer begins", leaveWhileAWriterBegins<60>},
    {"main, a block waits for it", leaveWhileABlockWaitsForMain},
    {"main, statics use the graph later", leaveAndUseTheGraphAfterwards},
    {"main, blocks sleep", leaveWhileABlockSleeps},
    {"main, a static writer", leaveWithAStaticWriter},
    {"main, a thread begins", leaveWhileAThreadBegins},
    {"another thread, the driver is being loaded", leaveDuringTheFirstDraws<50>},
    {"another thread, the driver compiles", leaveDuringTheFirstDraws<150>},
    {"another thread, the driver draws", leaveDuringTheFirstDraws<400>},
    {"a block of main", leaveInABlockOfMain},
    {"frame block", leaveInFrameBlock},
    {"global queue", leaveOnTheGlobalQueue},
    {"start's completion", leaveInStartsCompletion},
    {"snapshot's completion", leaveInSnapshotsCompletion},
    {"camera's delegate", leaveInTheCamerasDelegate},
    {"writer's completion", leaveInTheWritersCompletion},
    {"a thread of the application", leaveOnAThreadOfTheApplication},
    {"a logger", leaveInALogger},
    {"two threads at once", leaveOnTwoThreads},
    {"a forked child", leaveInAForkedChild},
    {"a forked child, queues have ended themselves", leaveInAForkedChildOfQueuesThatEndedThemselves},
};

}  // namespace

std::span<const WayToLeave> waysToLeave() { return kWays; }

void leaveBy(const WayToLeave& way, int report) {
  reportDescriptor = report;
  way.go();
  _exit(1);  // the way led nowhere
}

}  // namespace tavrel::test
