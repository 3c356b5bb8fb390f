#include <gmock/gmock.h>
#include <gtest/gtest.h>
#include <sys/stat.h>

#include <algorithm>
#include <array>

#include "Platform/Media/MediaError.h"
#include "Support/ReaderMovies.h"

namespace tavrel::test {
namespace {

using testing::HasSubstr;

TEST(Asset, DescribesPicturesAndSound) {
  const ReaderFolder folder;
  const auto movie = folder / "a.mp4";
  ASSERT_NO_FATAL_FAILURE(makeMovie(movie,
                                    "-f lavfi -i testsrc2=size=320x240:rate=30000/1001:duration=2 -f lavfi -i "
                                    "sine=sample_rate=44100:duration=1.5 -c:v libx264 -c:a aac -ac 2 OUT"));
  const auto asset = Asset::create(movie).value();
  ASSERT_EQ(asset->tracks().size(), 2U);
  const auto video = asset->tracksWithMediaType(MediaType::video).at(0);
  EXPECT_EQ(video->naturalSize(), (Size{320, 240}));
  EXPECT_NEAR(video->nominalFrameRate(), 29.97, 0.001);
  EXPECT_EQ(video->naturalTimescale() % 30000, 0);
  EXPECT_EQ(video->codecName(), "h264");
  EXPECT_EQ(video->timeRange().start, MediaTime::zero());
  EXPECT_NEAR(video->timeRange().duration.seconds(), 2, 0.034);
  EXPECT_TRUE(video->preferredTransform().isIdentity());
  const auto sound = asset->tracksWithMediaType(MediaType::audio).at(0);
  EXPECT_EQ(sound->sampleRate(), 44100);
  EXPECT_EQ(sound->channelCount(), 2);
  EXPECT_NEAR(sound->timeRange().duration.seconds(), 1.5, 0.05);
  EXPECT_NEAR(asset->duration().seconds(), 2, 0.034);
}

TEST(Asset, TellsTheRotation) {
  const ReaderFolder folder;
  ASSERT_NO_FATAL_FAILURE(
      makeMovie(folder / "a.mp4", "-f lavfi -i testsrc2=size=64x48:rate=10:duration=0.3 -c:v mpeg4 OUT"));
  ASSERT_NO_FATAL_FAILURE(
      makeMovieFrom(folder / "a.mp4", folder / "turned.mp4", "-i IN -c copy -metadata:s:v:0 rotate=90 OUT"));
  const auto track = Asset::create(folder / "turned.mp4").value()->tracks().at(0);
  EXPECT_EQ(track->naturalSize(), (Size{64, 48}));
  // This ffmpeg writes a quarter turn counter-clockwise for that: right becomes up, y being downwards.
  const AffineTransform turn = track->preferredTransform();
  const Point origin = turn.apply({0, 0});
  const Point right = turn.apply({1, 0});
  EXPECT_NEAR(right.x - origin.x, 0, 1e-6);
  EXPECT_NEAR(right.y - origin.y, -1, 1e-6);
}

TEST(Asset, LeavesOutCoversAndUnknownTracks) {
  const ReaderFolder folder;
  ASSERT_NO_FATAL_FAILURE(
      makeMovie(folder / "cover.png", "-f lavfi -i testsrc2=size=64x64:duration=1 -frames:v 1 OUT"));
  ASSERT_NO_FATAL_FAILURE(makeMovieFrom(folder / "cover.png", folder / "a.m4a",
                                        "-f lavfi -i sine=duration=1 -i IN -map 0 -map 1 -c:a aac -c:v copy "
                                        "-disposition:v:0 attached_pic OUT"));
  const auto asset = Asset::create(folder / "a.m4a").value();
  ASSERT_EQ(asset->tracks().size(), 1U);
  EXPECT_EQ(asset->tracks().at(0)->mediaType(), MediaType::audio);
}

TEST(Asset, FindsTracksThatBeginLongAfterTheFirst) {
  constexpr AssetOptions kPrecise = {.prefersPreciseDurationAndTiming = true};
  const ReaderFolder folder;
  for (const char* const name : {"a.vob", "a.ts"}) {
    SCOPED_TRACE(name);
    ASSERT_NO_FATAL_FAILURE(makeMovie(folder / name,
                                      "-f lavfi -i color=size=64x64:rate=25:duration=25 -itsoffset 20 -f lavfi -i "
                                      "sine=sample_rate=48000:duration=2 -c:v mpeg2video -c:a mp2 OUT"));
    OpenedReader sound(folder / name, MediaType::audio, kPrecise);
    const auto samples = sound.readAll();
    ASSERT_FALSE(samples.empty());
    EXPECT_NEAR(samples.back()->presentationTimeStamp().seconds(), 22, 0.1);
    EXPECT_EQ(OpenedReader(folder / name, MediaType::video, kPrecise).readAll().size(), 625U);
  }
  // A track beyond what is kept in memory in search of it.
  const auto joined = folder / "far.ts";
  std::vector<std::uint8_t> bytes = bytesOf(folder / "a.ts");
  constexpr std::size_t kPacket = 188;
  std::vector<std::uint8_t> padding(kPacket, 0xFF);
  std::copy_n(std::to_array<std::uint8_t>({0x47, 0x1F, 0xFF, 0x10}).begin(), 4, padding.begin());
  for (std::size_t i = 0; i < (std::size_t{66} << 20) / kPacket; ++i)
    bytes.insert(bytes.end(), padding.begin(), padding.end());
  ASSERT_NO_FATAL_FAILURE(
      makeMovieFrom(folder / "a.ts", folder / "b.ts", "-i IN -map 0:v -c copy -t 1 -mpegts_start_pid 0x200 OUT"));
  const auto later = bytesOf(folder / "b.ts");
  bytes.insert(bytes.end(), later.begin(), later.end());
  writeBytes(joined, bytes);
  const auto asset = Asset::create(joined, kPrecise).value();
  EXPECT_EQ(asset->tracks().size(), 2U);
  EXPECT_THAT(asset->contentBesideTracks(), testing::ElementsAre(HasSubstr("too far in the file (mpeg2video)")));
}

TEST(Asset, FindsSubtitlesThatBeginLongAfterThePictures) {
  const ReaderFolder folder;
  const auto film = folder / "a.vob";
  ASSERT_NO_FATAL_FAILURE(makeMovie(film,
                                    "-f lavfi -i testsrc2=size=320x240:rate=25:duration=25 -f lavfi -i "
                                    "sine=sample_rate=48000:duration=25 -c:v mpeg2video -b:v 2M -c:a mp2 OUT"));
  auto bytes = bytesOf(film);
  // A packet of a DVD's subtitles, at 13.5 s by the film's clock, which begins at 0.53 s, between two of its packs.
  constexpr auto kPacket = std::to_array<std::uint8_t>(
      {0, 0, 1, 0xBD, 0, 19, 0x81, 0x80, 5, 0x21, 0x00, 0x4B, 0x14, 0x31, 0x20, 0, 10, 0, 4, 0, 0, 0, 4, 2, 0xFF});
  constexpr std::size_t kPack = 2048;
  bytes.insert(bytes.begin() + static_cast<std::ptrdiff_t>(bytes.size() / kPack / 2 * kPack), kPacket.begin(),
               kPacket.end());
  writeBytes(film, bytes);
  OpenedReader subtitles(film, MediaType::subtitle, {.prefersPreciseDurationAndTiming = true});
  const auto samples = subtitles.readAll();
  ASSERT_EQ(samples.size(), 1U);
  EXPECT_NEAR(samples[0]->presentationTimeStamp().seconds(), 13.5 - 0.53, 0.001);
  EXPECT_TRUE(subtitles.asset->contentBesideTracks().empty());
  const auto decoding = AssetReader::create(subtitles.asset).value();
  decoding->addOutput(std::make_shared<AssetReaderTrackOutput>(subtitles.output->track()));
  EXPECT_FALSE(decoding->startReading());
  EXPECT_THAT(decoding->error()->description, HasSubstr("as they are stored"));
}

TEST(Asset, SaysWhyAFileIsNoMovie) {
  const ReaderFolder folder;
  const auto text = folder / "text.txt";
  const auto empty = folder / "empty.mp4";
  const auto noise = folder / "noise.mp4";
  const auto picture = folder / "picture.png";
  const auto pipe = folder / "pipe.mp4";
  writeBytes(text, {'a', ' ', 't', 'e', 'x', 't', '\n'});
  writeBytes(empty, {});
  writeBytes(noise, std::vector<std::uint8_t>(5000, 0x5A));
  ASSERT_EQ(mkfifo(pipe.c_str(), 0600), 0);
  ASSERT_NO_FATAL_FAILURE(makeMovie(picture, "-f lavfi -i testsrc2=size=64x64:duration=1 -frames:v 1 OUT"));
  const std::pair<std::filesystem::path, MediaErrorCode> cases[] = {
      {folder / "missing.mp4", MediaErrorCode::unreadableFile},
      {text, MediaErrorCode::unknownFileFormat},
      {empty, MediaErrorCode::unknownFileFormat},
      {noise, MediaErrorCode::unknownFileFormat},
      {picture, MediaErrorCode::unknownFileFormat},
      {pipe, MediaErrorCode::unreadableFile},
      {folder / "", MediaErrorCode::unreadableFile}};
  for (const auto& [file, code] : cases) {
    const auto asset = Asset::create(file);
    ASSERT_FALSE(asset.has_value()) << file;
    EXPECT_TRUE(asset.error() == code) << file << " " << asset.error().code;
    EXPECT_EQ(asset.error().domain, "media");
    EXPECT_THAT(asset.error().description, testing::StartsWith(file.string() + " is not a movie that can be read: "));
  }
  EXPECT_THAT(Asset::create(folder / "missing.mp4").error().description, HasSubstr("No such file"));
  EXPECT_THAT(Asset::create(picture).error().description, HasSubstr("a picture"));
  EXPECT_THAT(Asset::create(pipe).error().description, HasSubstr("not a regular file"));
}

}  // namespace
}  // namespace tavrel::test
