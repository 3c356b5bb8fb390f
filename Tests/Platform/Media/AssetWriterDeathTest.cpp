#include <gtest/gtest.h>

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

void expectPlays(const WriteLog& log, const std::filesystem::path& copy, std::size_t count, std::size_t bytes) {
  log.rebuild(copy, count, bytes);
  const auto probe = MovieProbe::open(copy);
  const double progress = log.writes()[std::min(count, log.writes().size() - 1)].progress;
  ASSERT_TRUE(probe.video && probe.audio) << probe.error;
  ASSERT_FALSE(probe.video->times.empty());
  EXPECT_GE(probe.video->seconds(probe.video->times.size() - 1) + 1.0 / kRate, progress - kMostLost);
  EXPECT_GE(probe.audio->seconds(), progress - kMostLost);
}

TEST(AssetWriterDeath, EveryMomentLeavesAMovieThatPlaysButForItsLastSecond) {
  const Case cases[] = {{kFileTypeQuickTimeMovie, MediaTime::make(600, 1)},
                        {kFileTypeQuickTimeMovie, MediaTime::zero()},  // the index comes at the end
                        {kFileTypeMPEG4, MediaTime::make(600, 1)},
                        {kFileTypeMatroska, MediaTime::zero()}};
  for (const Case& c : cases) {
    const TemporaryFolder folder;
    WriteLog log(folder / "movie");
    const std::size_t finish = record(c, folder / "movie", log);
    const auto& writes = log.writes();
    ASSERT_GT(writes.size(), finish + 2);
    std::mt19937 random(5);
    int deaths = 0;
    const auto die = [&](std::size_t count, std::size_t bytes) {
      SCOPED_TRACE(testing::Message() << c.fileType << ", after " << bytes << " bytes of write " << count << " of "
                                      << writes.size() << ", the finish begins at " << finish);
      expectPlays(log, folder / "copy", count, bytes);
      ++deaths;
    };
    for (std::size_t i = 0; i < writes.size(); ++i) {
      // Before the first fragment is safe, another name has the file.
      if (!writes[i].hasName) continue;
      const bool isFinish = i >= finish;
      for (int k = isFinish ? 0 : 2; k < 4; ++k) die(i, random() % writes[i].bytes.size());
      die(i, 0);
    }
    die(writes.size(), 0);
    EXPECT_GT(deaths, 13);
  }
}

}  // namespace
}  // namespace tavrel::test
