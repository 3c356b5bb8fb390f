// What a movie's writer does to the file's name, and what a slow disk does to the writer.
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <fmt/format.h>

#include <fstream>
#include <thread>

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

/// Those of the file itself.
std::vector<std::string> boxesOf(const std::filesystem::path& path) {
  std::vector<std::string> boxes;
  std::ifstream file(path, std::ios::binary);
  const auto number = [&](int bytes) {
    std::uint64_t value = 0;
    for (int i = 0; i < bytes; ++i) value = value << 8 | static_cast<unsigned char>(file.get());
    return value;
  };
  for (std::uint64_t start = 0; start < std::filesystem::file_size(path);) {
    file.seekg(static_cast<std::streamoff>(start));
    std::uint64_t size = number(4);
    std::string type(4, ' ');
    file.read(type.data(), 4);
    if (size == 1) size = number(8);
    boxes.push_back(type);
    if (size < 8) break;
    start += size;
  }
  return boxes;
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

TEST(AssetWriterDisk, ADiskThatStallsOnEveryWriteLosesNoPicture) {
  const TemporaryFolder folder;
  const auto path = folder / "movie.mov";
  const auto maker = MovieMaker::start(path, {.width = 320, .height = 240, .audioSettings = aacSettings()});
  const auto picture = solidPicture(320, 240, 1, 2, 3);
  constexpr int kPictures = 450;
  // Three times as fast as live.
  constexpr std::chrono::microseconds kInterval{11'111};
  {
    const DiskStall stall(600ms);
    const auto begin = std::chrono::steady_clock::now();
    for (int i = 0; i < kPictures; ++i) {
      std::this_thread::sleep_until(begin + i * kInterval);
      ASSERT_TRUE(maker.addPicture(picture, MediaTime::make(i, 30))) << i;
      ASSERT_TRUE(maker.addTone(1 / 30.0, MediaTime::make(i * 1600, 48000))) << i;
    }
    const auto late = std::chrono::steady_clock::now() - begin - kPictures * kInterval;
    EXPECT_LT(late, 500ms) << "somebody waited for the disk";
  }
  ASSERT_TRUE(maker.writer->finishWriting());
  EXPECT_EQ(maker.writer->writtenSamples(MediaType::video), static_cast<std::uint64_t>(kPictures));
  EXPECT_EQ(MovieProbe::open(path).video->times.size(), static_cast<std::size_t>(kPictures));
}

/// Of packets that no decoder looks at.
std::shared_ptr<const FormatDescription> packetFormat() {
  auto format = std::make_shared<FormatDescription>();
  format->mediaType = MediaType::video;
  format->codecName = "mjpeg";
  format->videoSize = {64, 48};
  return format;
}

TEST(AssetWriterDisk, AnHourIsFinishedAtOnce) {
  const TemporaryFolder folder;
  const char* const wanted = ::getenv("TAVREL_TEST_PICTURE_BYTES");
  const std::size_t size = wanted ? std::stoul(wanted) : 400;
  const auto path = folder / "movie.mov";
  const auto writer = *AssetWriter::create(path, kFileTypeQuickTimeMovie);
  const auto video = AssetWriterInput::create(MediaType::video, std::nullopt);
  const auto audio = AssetWriterInput::create(MediaType::audio, aacSettings(8000));
  writer->setMovieFragmentInterval(MediaTime::make(30, 1));
  writer->setIndexRoom(MediaTime::make(1, 1));
  ASSERT_TRUE(writer->addInput(video) && writer->addInput(audio) && writer->startWriting());
  writer->startSessionAtSourceTime(MediaTime::zero());
  const auto format = packetFormat();
  const Data bytes(size, 7);
  constexpr std::int64_t kPictures = 30 * 3600;
  const auto second = sound({.sampleRate = 8000}, 8000, MediaTime::zero(), [](double) { return 0.1; });
  for (std::int64_t i = 0; i < kPictures; ++i) {
    const SampleTiming timing{MediaTime::make(1, 30), MediaTime::make(i, 30), {}};
    ASSERT_TRUE(video->waitUntilReady(20s) && video->append(*SampleBuffer::createPacket(format, bytes, timing)));
    if (i % 30 != 0) continue;
    SampleTiming heard = second->timingEntries().front();
    heard.presentationTimeStamp = MediaTime::make(i, 30);
    ASSERT_TRUE(audio->waitUntilReady(20s) && audio->append(*second->copyWithNewTiming({heard})));
  }
  // What waits for the disk by then is not the finish's.
  while (writer->writtenUntil().seconds() < 3540) std::this_thread::sleep_for(10ms);
  const auto begin = std::chrono::steady_clock::now();
  ASSERT_TRUE(writer->finishWriting()) << writer->error()->description;
  const std::chrono::duration<double> taken = std::chrono::steady_clock::now() - begin;
  fmt::print("{} MB are finished in {:.2f} s\n", std::filesystem::file_size(path) >> 20, taken.count());
  EXPECT_LT(taken.count(), 2);
  // The index of more than there is room for comes at the end.
  EXPECT_EQ(boxesOf(path), (std::vector<std::string>{"ftyp", "free", "mdat", "moov"}));
}

TEST(AssetWriterDisk, WhatWaitsIsBoundedAndSoundHasRoomLongest) {
  const TemporaryFolder folder;
  const auto path = folder / "movie.mov";
  const auto writer = *AssetWriter::create(path, kFileTypeQuickTimeMovie);
  const auto video = AssetWriterInput::create(MediaType::video, std::nullopt);
  const auto audio = AssetWriterInput::create(MediaType::audio, std::nullopt);
  ASSERT_TRUE(writer->addInput(video) && writer->addInput(audio) && writer->startWriting());
  writer->startSessionAtSourceTime(MediaTime::zero());
  const auto format = packetFormat();
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
