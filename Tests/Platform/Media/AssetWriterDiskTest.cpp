// What a movie's writer does to the file's name, and what a slow disk does to the writer.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fstream>

#include "Platform/Media/DiskGate.h"
#include "Platform/Media/MediaError.h"
#include "Platform/Media/MovieMaker.h"
#include "Platform/Media/MovieProbe.h"

namespace tavrel::test {
namespace {

using namespace std::chrono_literals;

bool isOld(const std::filesystem::path& path) {
  std::string text;
  std::ifstream(path) >> text;
  return text == "old";
}

std::size_t filesBeside(const std::filesystem::path& path) {
  return static_cast<std::size_t>(std::distance(std::filesystem::directory_iterator(path.parent_path()), {}));
}

TEST(AssetWriterDisk, AFileStaysUntilTheFirstFragmentOfTheNewOneIsThere) {
  const TemporaryFolder folder;
  const auto path = folder / "movie.mov";
  std::ofstream(path) << "old";
  ::chmod(path.c_str(), 0640);
  std::filesystem::create_symlink("movie.mov", folder / "link.mov");
  const auto picture = solidPicture(64, 48, 1, 2, 3);

  { ASSERT_TRUE(AssetWriter::create(path, kFileTypeQuickTimeMovie)); }
  {
    const auto writer = *AssetWriter::create(path, kFileTypeQuickTimeMovie);
    EXPECT_FALSE(writer->startWriting()) << "no input";
  }
  {
    const auto maker = MovieMaker::start(path, {});
    EXPECT_FALSE(maker.writer->finishWriting()) << "no sample";
    EXPECT_EQ(maker.writer->status(), AssetWriterStatus::failed);
    EXPECT_TRUE(*maker.writer->error() == MediaErrorCode::emptyMovie);
  }
  {
    const auto maker = MovieMaker::create(path, {});
    maker.writer->setAppearsWhenComplete(true);
    maker.writer->startWriting();
    maker.writer->startSessionAtSourceTime(MediaTime::zero());
    for (int i = 0; i < 90; ++i) maker.addPicture(picture, MediaTime::make(i, 30));
    while (maker.writer->writtenUntil() == MediaTime::zero()) std::this_thread::sleep_for(1ms);
    EXPECT_TRUE(isOld(path)) << "incomplete";
    maker.writer->cancelWriting();
  }
  EXPECT_TRUE(isOld(path));
  EXPECT_EQ(filesBeside(path), 2U) << "nothing is left of those";

  const auto maker = MovieMaker::start(folder / "link.mov", {});
  EXPECT_TRUE(isOld(path));
  for (int i = 0; i < 60; ++i) maker.addPicture(picture, MediaTime::make(i, 30));
  while (maker.writer->writtenUntil() == MediaTime::zero()) std::this_thread::sleep_for(1ms);
  EXPECT_EQ(MovieProbe::open(path).error, "") << "it has its name while it grows";
  for (const char* name : {"movie.mov", "link.mov"}) {
    const auto second = AssetWriter::create(folder / name, kFileTypeQuickTimeMovie);
    ASSERT_FALSE(second) << "another writes it";
    EXPECT_TRUE(second.error() == MediaErrorCode::fileInUse);
  }
  EXPECT_TRUE(maker.writer->finishWriting());
  EXPECT_EQ(maker.writer->writtenSamples(MediaType::video), 60U);
  EXPECT_TRUE(std::filesystem::is_symlink(folder / "link.mov"));
  EXPECT_EQ(std::filesystem::status(path).permissions(), std::filesystem::perms(0640));
  EXPECT_EQ(filesBeside(path), 2U);
}

TEST(AssetWriterDisk, TwoWritersOfOneNewNameAreKeptApart) {
  const TemporaryFolder folder;
  // As long as a name can be.
  const auto path = folder / (std::string(251, 'x') + ".mov");
  auto first = AssetWriter::create(path, kFileTypeQuickTimeMovie);
  ASSERT_TRUE(first) << first.error().description;
  EXPECT_FALSE(AssetWriter::create(path, kFileTypeQuickTimeMovie));
  first = tl::unexpected(Error());
  EXPECT_TRUE(AssetWriter::create(path, kFileTypeQuickTimeMovie));
  // What an end by force has left is not in the way.
  std::ofstream(folder / ".killed.mov.part") << "rest";
  const auto maker = MovieMaker::start(folder / "killed.mov", {});
  maker.addPicture(solidPicture(64, 48, 1, 2, 3), MediaTime::zero());
  EXPECT_TRUE(maker.writer->finishWriting());
  EXPECT_EQ(MovieProbe::open(folder / "killed.mov").error, "");
}

TEST(AssetWriterDisk, NothingWaitsForAWrite) {
  for (const char* type : {kFileTypeQuickTimeMovie, kFileTypeMatroska}) {
    const TemporaryFolder folder;
    const auto path = folder / "movie";
    const auto maker = MovieMaker::start(path, {.fileType = type, .audioSettings = aacSettings()});
    const auto picture = solidPicture(64, 48, 1, 2, 3);
    DiskGate gate;
    for (int i = 0; i < 120; ++i) {
      ASSERT_TRUE(maker.addPicture(picture, MediaTime::make(i, 30))) << type << " " << i;
      ASSERT_TRUE(maker.addTone(1 / 30.0, MediaTime::make(i * 1600, 48000))) << type << " " << i;
      const bool isReached = i != 30 || DiskGate::isStoodBefore();
      ASSERT_TRUE(isReached);
    }
    EXPECT_EQ(maker.writer->writtenUntil(), MediaTime::zero());
    gate.open();
    ASSERT_TRUE(maker.writer->finishWriting());
    const auto probe = MovieProbe::open(path);
    EXPECT_EQ(probe.video->times.size(), 120U);
    EXPECT_EQ(maker.writer->writtenSamples(MediaType::video), 120U);
    EXPECT_NEAR(probe.audio->seconds(), 4, 0.1);
  }
}

TEST(AssetWriterDisk, WhatWaitsIsBoundedAndSoundHasRoomLongest) {
  const TemporaryFolder folder;
  const auto path = folder / "movie.mov";
  const auto writer = *AssetWriter::create(path, kFileTypeQuickTimeMovie);
  const auto video = AssetWriterInput::create(MediaType::video, std::nullopt);
  const auto audio = AssetWriterInput::create(MediaType::audio, std::nullopt);
  ASSERT_TRUE(writer->addInput(video) && writer->addInput(audio) && writer->startWriting());
  writer->startSessionAtSourceTime(MediaTime::zero());
  auto format = std::make_shared<FormatDescription>();
  format->mediaType = MediaType::video;
  format->codecName = "mjpeg";
  format->videoSize = {64, 48};
  // The sound, which never comes, must not keep the pictures in memory.
  DiskGate gate;
  constexpr std::size_t kSize = 1 << 20;
  std::uint64_t taken = 0;
  const auto appendPicture = [&] {
    const SampleTiming timing{MediaTime::make(1, 30), MediaTime::make(static_cast<std::int64_t>(taken), 30), {}};
    return video->append(*SampleBuffer::createPacket(format, Data(kSize, 7), timing));
  };
  // Room for the few that wait for the thread in between comes back soon; room for more, while the gate is closed, not.
  while (video->waitUntilReady(2s) && appendPicture()) ++taken;
  EXPECT_GT(taken, 40U);
  EXPECT_LT(taken, 140U);
  EXPECT_TRUE(audio->waitUntilReady(2s));
  gate.open();
  EXPECT_TRUE(video->waitUntilReady(20s)) << "there is room again";
  EXPECT_TRUE(appendPicture());
  ASSERT_TRUE(writer->finishWriting()) << writer->error()->description;
  EXPECT_EQ(writer->writtenSamples(MediaType::video), taken + 1);
}

}  // namespace
}  // namespace tavrel::test
