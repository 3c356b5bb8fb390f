#include <gtest/gtest.h>

#include <fcntl.h>
#include <unistd.h>

#include <atomic>
#include <random>
#include <thread>

#include "Platform/Media/MovieMaker.h"
#include "Platform/Media/MovieProbe.h"
#include "Platform/Media/WriteLog.h"

namespace tavrel::test {
namespace {

constexpr int kRate = 30;
constexpr int kFrames = 5 * kRate;
constexpr double kMostLost = 1;

struct Case {
  const char* fileType;
  MediaTime indexRoom;
};

/// How late this machine is with small work that waits for its disk, while there is one. Seconds.
class Lateness {
 public:
  explicit Lateness(const std::filesystem::path& file) : descriptor_(::open(file.c_str(), O_WRONLY | O_CREAT, 0600)) {}
  ~Lateness() {
    isOver_ = true;
    thread_.join();
    ::close(descriptor_);
  }
  double worst() const { return worst_; }

 private:
  void measure() {
    using Clock = std::chrono::steady_clock;
    constexpr std::chrono::milliseconds kStep{20};
    for (auto due = Clock::now() + kStep; !isOver_; due = Clock::now() + kStep) {
      std::this_thread::sleep_until(due);
      EXPECT_EQ(::pwrite(descriptor_, "x", 1, 0), 1);
      ::fdatasync(descriptor_);
      worst_ = std::max(worst_.load(), std::chrono::duration<double>(Clock::now() - due).count());
    }
  }

  const int descriptor_;
  std::atomic<double> worst_ = 0;
  std::atomic<bool> isOver_ = false;
  std::thread thread_{[this] { measure(); }};
};

/// Five seconds in real time; notes how much was handed in, and how many writes there were before the finish.
std::size_t record(const Case& c, const std::filesystem::path& path, WriteLog& log) {
  const auto maker =
      MovieMaker::start(path, {.fileType = c.fileType, .audioSettings = aacSettings(), .prepare = [&](MovieMaker& m) {
                                 m.writer->setIndexRoom(c.indexRoom);
                               }});
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < kFrames; ++i) {
    std::this_thread::sleep_until(start + std::chrono::duration<double>(i) / kRate);
    const auto shade = static_cast<std::uint8_t>(i);
    EXPECT_TRUE(maker.addPicture(solidPicture(64, 48, shade, shade, shade), MediaTime::make(i, kRate)));
    EXPECT_TRUE(maker.addTone(1.0 / kRate, MediaTime::make(i, kRate)));
    log.progress = static_cast<double>(i + 1) / kRate;
  }
  while (maker.writer->writtenUntil().seconds() < 3) std::this_thread::yield();
  const std::size_t before = log.writes().size();
  EXPECT_TRUE(maker.writer->finishWriting());
  return before;
}

void expectPlays(const WriteLog& log, const std::filesystem::path& copy, std::size_t count, std::size_t bytes,
                 double late) {
  log.rebuild(copy, count, bytes);
  const auto probe = MovieProbe::open(copy);
  const double progress = log.writes()[std::min(count, log.writes().size() - 1)].progress;
  ASSERT_TRUE(probe.video && probe.audio) << probe.error;
  ASSERT_FALSE(probe.video->times.empty());
  EXPECT_GE(probe.video->seconds(probe.video->times.size() - 1) + 1.0 / kRate, progress - kMostLost - late);
  EXPECT_GE(probe.audio->seconds(), progress - kMostLost - late);
}

TEST(AssetWriterDeath, EveryMomentLeavesAMovieThatPlaysButForItsLastSecond) {
  const Case cases[] = {{kFileTypeQuickTimeMovie, MediaTime::make(600, 1)},
                        {kFileTypeQuickTimeMovie, MediaTime::zero()},  // the index comes at the end
                        {kFileTypeMPEG4, MediaTime::make(600, 1)},
                        {kFileTypeMatroska, MediaTime::zero()},
                        {kFileTypeWebM, MediaTime::zero()}};
  for (const Case& c : cases) {
    const TemporaryFolder folder;
    WriteLog log(folder / "movie");
    std::optional<Lateness> lateness;
    lateness.emplace(folder / "late");
    const std::size_t finish = record(c, folder / "movie", log);
    const double late = 2 * lateness->worst();
    lateness.reset();
    const auto& writes = log.writes();
    ASSERT_GT(writes.size(), finish + 2);
    std::mt19937 random(5);
    int deaths = 0;
    const auto die = [&](std::size_t count, std::size_t bytes) {
      SCOPED_TRACE(testing::Message() << c.fileType << ", after " << bytes << " bytes of write " << count << " of "
                                      << writes.size() << ", the finish begins at " << finish << ", late " << late);
      expectPlays(log, folder / "copy", count, bytes, late);
      ++deaths;
    };
    for (std::size_t i = 0; i < writes.size(); ++i) {
      // Before the first fragment is safe, another name has the file.
      if (!writes[i].hasName) continue;
      const bool isFinish = i >= finish;
      for (int k = isFinish ? 0 : 1; k < 4; ++k) die(i, random() % writes[i].bytes.size());
      die(i, 0);
    }
    die(writes.size(), 0);
    EXPECT_GE(deaths, 50);
  }
}

}  // namespace
}  // namespace tavrel::test
