#include <fcntl.h>
#include <gtest/gtest.h>
#include <signal.h>
#include <sys/resource.h>
#include <sys/stat.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <fstream>
#include <random>
#include <thread>

#include "Platform/Media/MediaError.h"
#include "Platform/Media/MovieMaker.h"
#include "Platform/Media/MovieProbe.h"

namespace tavrel::test {
namespace {

using namespace std::chrono_literals;

/// Runs this test program again as a child that does only `scenario` (see RecordingChild).
pid_t startChild(const std::string& scenario, const std::filesystem::path& path, const char* fileType) {
  const std::string log = path.string() + ".log";
  const pid_t child = ::fork();
  if (child != 0) return child;
  ::setenv("TAVREL_TEST_SCENARIO", scenario.c_str(), 1);
  ::setenv("TAVREL_TEST_PATH", path.c_str(), 1);
  ::setenv("TAVREL_TEST_TYPE", fileType, 1);
  const int output = ::open(log.c_str(), O_WRONLY | O_CREAT, 0600);
  ::dup2(output, STDOUT_FILENO);
  ::execl("/proc/self/exe", "test", "--gtest_also_run_disabled_tests", "--gtest_filter=*RecordingChild", nullptr);
  ::_exit(127);
}

/// Records in real time for 20 s, telling in a file beside the movie how far it got.
void recordInRealTime(const MovieMaker& maker, const std::filesystem::path& path, bool pauses) {
  std::ofstream progress(path.string() + ".progress");
  const auto picture = solidPicture(320, 240, 200, 100, 50);
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < 600; ++i) {
    std::this_thread::sleep_until(start + i * 33'333us);
    if (pauses && i == 45) std::this_thread::sleep_for(20s);
    if (maker.adaptor->append(picture, MediaTime::make(i, 30))) progress << i << std::endl;
    maker.audio->append(
        sound({}, 1600, MediaTime::make(i * 1600, 48000), [](double t) { return 0.5 * std::sin(2765 * t); }));
  }
}

/// Records noise until the disk, which is small, is full, and tells in a file beside the movie what the writer says.
void fillTheDisk(const MovieMaker& maker, const std::filesystem::path& path) {
  std::mt19937 random(3);
  for (int i = 0; i < 3000 && maker.writer->status() == AssetWriterStatus::writing; ++i) {
    const auto picture = solidPicture(320, 240, 10, 10, 10);
    picture->lockBaseAddress(PixelBufferLock::readWrite);
    std::uint8_t* const bytes = picture->baseAddress();
    for (std::size_t k = 0; k < 320 * 240 * 4; k += 16) bytes[k] = static_cast<std::uint8_t>(random() % 64);
    picture->unlockBaseAddress(PixelBufferLock::readWrite);
    maker.addPicture(picture, MediaTime::make(i, 30));
    maker.addTone(1 / 30.0, MediaTime::make(i * 1600, 48000));
  }
  const bool finished = maker.writer->finishWriting();
  const auto error = maker.writer->error();
  std::ofstream(path.string() + ".result")
      << finished << " " << static_cast<int>(maker.writer->status()) << " " << maker.writer->writtenUntil().seconds()
      << " " << (error ? error->description : "");
}

TEST(AssetWriterFailure, DISABLED_RecordingChild) {
  const char* const path = ::getenv("TAVREL_TEST_PATH");
  if (!path) GTEST_SKIP() << "runs only as a child of the tests below";
  const std::string scenario = ::getenv("TAVREL_TEST_SCENARIO");
  if (scenario == "full") {
    ::signal(SIGXFSZ, SIG_IGN);
    const rlimit limit{700'000, 700'000};
    ::setrlimit(RLIMIT_FSIZE, &limit);
  }
  const auto maker = MovieMaker::start(path, {.fileType = ::getenv("TAVREL_TEST_TYPE"),
                                              .width = 320,
                                              .height = 240,
                                              .isRealTime = scenario != "full",
                                              .audioSettings = aacSettings()});
  if (scenario == "full") return fillTheDisk(maker, path);
  recordInRealTime(maker, path, scenario == "pause");
}

int lastProgress(const std::filesystem::path& path) {
  std::ifstream file(path.string() + ".progress");
  int last = -1;
  for (int frame = 0; file >> frame;) last = frame;
  return last;
}

TEST(AssetWriterFailure, KilledRecordingsPlayUpToTheLastSecondAndAHalf) {
  struct Case {
    const char* scenario;
    std::chrono::milliseconds after;  // the file's appearance
  };
  std::mt19937 random(7);
  std::vector<Case> cases{{"record", 0ms}, {"pause", 3500ms}};
  for (int i = 0; i < 4; ++i) cases.push_back({"record", std::chrono::milliseconds(400 + random() % 3600)});
  for (const char* type : {kFileTypeQuickTimeMovie, kFileTypeMatroska}) {
    for (const Case& c : cases) {
      const TemporaryFolder folder;
      const auto path = folder / "movie";
      const pid_t child = startChild(c.scenario, path, type);
      while (!std::filesystem::exists(path)) std::this_thread::sleep_for(2ms);
      std::this_thread::sleep_for(c.after);
      ::kill(child, SIGKILL);
      int status = 0;
      ::waitpid(child, &status, 0);
      ASSERT_TRUE(WIFSIGNALED(status)) << "the recording ended by itself";
      const auto probe = MovieProbe::open(path);
      ASSERT_EQ(probe.error, "") << c.after.count() << " ms";
      ASSERT_TRUE(probe.video && probe.audio);
      EXPECT_EQ(probe.video->width, 320);
      const double recorded = (lastProgress(path) + 1) / 30.0;
      const double kept =
          probe.video->times.empty() ? 0 : probe.video->seconds(probe.video->times.size() - 1) + 1 / 30.0;
      // A recording that paused longer than a fragment had time to put all into the file but what the encoder holds.
      EXPECT_GT(kept, recorded - (c.scenario == std::string("pause") ? 0.45 : 1.5))
          << type << " " << c.after.count() << " ms";
      EXPECT_NEAR(probe.audio->seconds(), kept, 0.5);
    }
  }
}

TEST(AssetWriterFailure, FullDiskKeepsWhatWasRecorded) {
  for (const char* type : {kFileTypeQuickTimeMovie, kFileTypeMPEG4, kFileTypeMatroska}) {
    const TemporaryFolder folder;
    const auto path = folder / "movie";
    const pid_t child = startChild("full", path, type);
    int status = 0;
    ::waitpid(child, &status, 0);
    ASSERT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
    std::ifstream result(path.string() + ".result");
    int finished = 0, writerStatus = 0;
    double until = 0;
    std::string description;
    result >> finished >> writerStatus >> until;
    std::getline(result, description);
    EXPECT_EQ(finished, 0);
    EXPECT_EQ(writerStatus, static_cast<int>(AssetWriterStatus::failed));
    EXPECT_NE(description.find("File too large"), std::string::npos) << description;
    EXPECT_TRUE(description.ends_with("File too large")) << description;
    EXPECT_GT(until, 0.5) << type;
    const auto probe = MovieProbe::open(path);
    ASSERT_TRUE(probe.video && probe.audio) << type << probe.error;
    EXPECT_EQ(probe.decodeErrors, 0) << type;
    ASSERT_FALSE(probe.video->times.empty());
    EXPECT_GE(probe.video->seconds(probe.video->times.size() - 1) + 0.05, until);
    EXPECT_GE(probe.audio->seconds() + 0.05, until);
  }
}

TEST(AssetWriterFailure, CreationSaysWhatIsWrong) {
  const TemporaryFolder folder;
  const auto unknownType = AssetWriter::create(folder / "a.avi", "video/avi");
  ASSERT_FALSE(unknownType);
  EXPECT_NE(unknownType.error().description.find("video/quicktime"), std::string::npos);
  EXPECT_TRUE(unknownType.error() == MediaErrorCode::unsupportedFileType);
  const auto noFolder = AssetWriter::create(folder / "missing/a.mov", kFileTypeQuickTimeMovie);
  ASSERT_FALSE(noFolder);
  EXPECT_NE(noFolder.error().description.find("No such file"), std::string::npos);
  EXPECT_FALSE(AssetWriter::create(folder / ".", kFileTypeQuickTimeMovie));
  ASSERT_EQ(::mkfifo((folder / "pipe").c_str(), 0600), 0);
  EXPECT_FALSE(AssetWriter::create(folder / "pipe", kFileTypeQuickTimeMovie));
}

TEST(AssetWriterFailure, SettingsThatCannotBeEncodedAreRefused) {
  const TemporaryFolder folder;
  const auto writer = *AssetWriter::create(folder / "movie.mov", kFileTypeQuickTimeMovie);
  const auto refusal = [&](MediaType type, const Dictionary& settings) {
    EXPECT_FALSE(writer->addInput(AssetWriterInput::create(type, settings)));
    return writer->error() ? writer->error()->description : "";
  };
  EXPECT_NE(refusal(MediaType::video, h264Settings(0, 480)).find("VideoWidth is 0"), std::string::npos);
  EXPECT_NE(refusal(MediaType::video, h264Settings(640, 20000)).find("1 to 16384"), std::string::npos);
  EXPECT_NE(refusal(MediaType::video, {{kVideoCodecKey, std::string("xyz1")}}).find("avc1"), std::string::npos);
  EXPECT_NE(refusal(MediaType::audio, {}).find("AAC"), std::string::npos);
  EXPECT_NE(refusal(MediaType::audio, aacSettings(48000, 7)).find("1, 2 or 6"), std::string::npos);
  EXPECT_NE(refusal(MediaType::audio, aacSettings(-5)).find("AudioSampleRate"), std::string::npos);
  const auto input = AssetWriterInput::create(MediaType::video, h264Settings(64, 48));
  EXPECT_TRUE(writer->addInput(input));
  EXPECT_FALSE(writer->addInput(input)) << "twice";
  EXPECT_FALSE(input->isReadyForMoreMediaData());
  // Nothing of this kept it from working.
  ASSERT_TRUE(writer->startWriting());
  EXPECT_FALSE(writer->error());
  EXPECT_FALSE(writer->addInput(AssetWriterInput::create(MediaType::audio, aacSettings()))) << "too late";
  EXPECT_TRUE(input->isReadyForMoreMediaData());
  writer->cancelWriting();
  EXPECT_FALSE(writer->startWriting());
  // But where nothing else is left, it is why.
  const auto other = *AssetWriter::create(folder / "other.mov", kFileTypeQuickTimeMovie);
  other->addInput(AssetWriterInput::create(MediaType::video, h264Settings(0, 480)));
  EXPECT_FALSE(other->startWriting());
  EXPECT_NE(other->error()->description.find("VideoWidth is 0"), std::string::npos);
}

TEST(AssetWriterFailure, ACodecThatRefusesItsPresetFailsTheStart) {
  const TemporaryFolder folder;
  Dictionary settings = h264Settings(64, 48);
  settings[kVideoPresetKey] = std::string("no-such-preset");
  const auto writer = *AssetWriter::create(folder / "movie.mov", kFileTypeQuickTimeMovie);
  ASSERT_TRUE(writer->addInput(AssetWriterInput::create(MediaType::video, settings)));
  EXPECT_FALSE(writer->startWriting());
  EXPECT_EQ(writer->status(), AssetWriterStatus::failed);
  EXPECT_NE(writer->error()->description.find("libx264"), std::string::npos);
  EXPECT_TRUE(*writer->error() == MediaErrorCode::encoderUnavailable);
  EXPECT_FALSE(writer->finishWriting());
}

/// Feeds both tracks from two threads until the writer ends.
class Feeders {
 public:
  explicit Feeders(const MovieMaker& maker) : maker_(maker) {
    threads_.emplace_back([this] {
      const auto picture = solidPicture(320, 240, 1, 2, 3);
      for (int i = 1; !done_; ++i) maker_.addPicture(picture, MediaTime::make(i, 30));
    });
    threads_.emplace_back([this] {
      for (int i = 0; !done_; ++i) maker_.addTone(0.02, MediaTime::make(i, 50));
    });
  }
  ~Feeders() {
    done_ = true;
    for (auto& thread : threads_) thread.join();
  }

 private:
  MovieMaker maker_;
  std::atomic<bool> done_ = false;
  std::vector<std::thread> threads_;
};

TEST(AssetWriterFailure, EndsAtAnyMomentWithoutHanging) {
  std::mt19937 random(11);
  for (int round = 0; round < 24; ++round) {
    const TemporaryFolder folder;
    const auto path = folder / "movie.mov";
    auto maker = MovieMaker::start(
        path, {.width = 320, .height = 240, .isRealTime = round % 2 == 0, .audioSettings = aacSettings()});
    maker.addPicture(solidPicture(320, 240, 1, 2, 3), MediaTime::zero());
    auto feeders = std::make_unique<Feeders>(maker);
    std::this_thread::sleep_for(std::chrono::milliseconds(random() % 120));
    const auto before = std::chrono::steady_clock::now();
    const std::weak_ptr<AssetWriter> weak = maker.writer;
    switch (round % 4) {
      case 0:
        maker.writer->cancelWriting();
        EXPECT_EQ(maker.writer->status(), AssetWriterStatus::cancelled);
        EXPECT_FALSE(std::filesystem::exists(path));
        break;
      case 1: {
        std::atomic<bool> called = false;
        maker.writer->finishWriting([&] { called = true; });
        EXPECT_TRUE(maker.writer->finishWriting());
        while (!called) std::this_thread::sleep_for(1ms);
        EXPECT_EQ(MovieProbe::open(path).error, "");
        break;
      }
      case 2: {  // finishing and cancelling at once: either may win
        std::thread other([&] { maker.writer->cancelWriting(); });
        maker.writer->finishWriting();
        other.join();
        EXPECT_EQ(std::filesystem::exists(path), maker.writer->status() == AssetWriterStatus::completed);
        break;
      }
      default:  // the last owner goes
        feeders.reset();
        maker.writer.reset();
        EXPECT_TRUE(weak.expired());
        EXPECT_EQ(MovieProbe::open(path).error, "");
    }
    EXPECT_LT(std::chrono::steady_clock::now() - before, 10s);
    EXPECT_FALSE(maker.video->isReadyForMoreMediaData());
    EXPECT_FALSE(maker.video->waitUntilReady(10s)) << "returns at once";
  }
}

TEST(AssetWriterFailure, CompletionIsCalledInEveryState) {
  const TemporaryFolder folder;
  const auto waitForCompletion = [](AssetWriter& writer) {
    std::atomic<bool> called = false;
    writer.finishWriting([&] { called = true; });
    const auto deadline = std::chrono::steady_clock::now() + 10s;
    while (!called && std::chrono::steady_clock::now() < deadline) std::this_thread::sleep_for(1ms);
    return called.load();
  };
  auto maker = MovieMaker::create(folder / "movie.mov", {});
  EXPECT_TRUE(waitForCompletion(*maker.writer)) << "unknown";
  EXPECT_EQ(maker.writer->status(), AssetWriterStatus::unknown);
  maker.writer->cancelWriting();
  EXPECT_TRUE(waitForCompletion(*maker.writer)) << "cancelled";
  EXPECT_FALSE(maker.writer->startWriting());
  auto second = MovieMaker::start(folder / "second.mov", {});
  second.addPicture(solidPicture(64, 48, 1, 2, 3), MediaTime::zero());
  // The last reference goes inside the completion.
  std::atomic<bool> called = false;
  AssetWriter& writer = *second.writer;
  writer.finishWriting([&called, owner = std::move(second.writer)]() mutable {
    EXPECT_EQ(owner->status(), AssetWriterStatus::completed);
    EXPECT_TRUE(owner->finishWriting());
    owner.reset();
    called = true;
  });
  while (!called) std::this_thread::sleep_for(1ms);
}

}  // namespace
}  // namespace tavrel::test
