#include <gmock/gmock.h>

#include <algorithm>
#include <cmath>
#include <csignal>
#include <fstream>
#include <thread>

#include "Platform/Media/Asset.h"
#include "Platform/Media/AssetReader.h"
#include "Platform/Media/AssetReaderTrackOutput.h"
#include "ProgramTestSupport.h"
#include "Support/EffectsGif.h"
#include "Support/RecordingObservation.h"
#include "TavrelCaptureBase.h"
#include "TavrelCaptureTesting.h"

namespace tavrel {
namespace {

using test::CommandResult;
using test::RecordingObservation;

void forEachSample(const std::string& movie, MediaType mediaType, const std::function<void(SampleBuffer&)>& action) {
  const auto asset = Asset::create(movie);
  ASSERT_TRUE(asset.has_value()) << asset.error().description;
  const auto tracks = (*asset)->tracksWithMediaType(mediaType);
  ASSERT_EQ(tracks.size(), 1U);
  const auto reader = AssetReader::create(*asset).value();
  const auto output = std::make_shared<AssetReaderTrackOutput>(tracks[0]);
  reader->addOutput(output);
  ASSERT_TRUE(reader->startReading());
  while (const auto sample = output->copyNextSampleBuffer()) action(*sample);
}

/// Records, and checks that flashes and beeps are together.
RecordingObservation recordTogether(const std::string& movie, const std::string& arguments) {
  const CommandResult result = test::tavrel("record " + movie + " " + arguments);
  EXPECT_EQ(result.status, 0) << result.output;
  RecordingObservation seen = RecordingObservation::of(movie);
  EXPECT_EQ(seen.error, "");
  // Frames are stamped as they arrive, on a busy machine late. What both tracks are off shows in each flash.
  double nearest = 1e9;
  for (const double flash : seen.flashes) {
    for (const double beep : seen.beeps) nearest = std::min(nearest, std::abs(beep - flash));
  }
  EXPECT_LE(nearest, 0.020);
  return seen;
}

class RecordCommandTest : public test::ProgramTest {};

TEST_F(RecordCommandTest, ZoomShowsTheMiddle) {
  // Red in the middle, half as wide and high as the picture.
  ASSERT_EQ(test::shell("ffmpeg -v error -f lavfi -i color=blue:s=320x240,drawbox=80:60:160:120:red:fill -frames:v 1 " +
                        file("scene.png"))
                .status,
            0);
  const auto cornerOf = [&](const std::string& arguments) {
    const std::string movie = file("movie.mov");
    const CommandResult result = test::tavrel("record " + movie + " --force --camera file:" + file("scene.png") +
                                              " --microphone none --size 320x240 --fps 10 --duration 1 " + arguments);
    EXPECT_EQ(result.status, 0) << result.output;
    // Of the last frame: controls act on a camera that runs.
    return test::shell("ffmpeg -v error -i " + movie +
                       " -vf crop=16:16:20:20,scale=1:1,format=rgb24 -f rawvideo - | tail -c 3 | od -An -tu1 | "
                       "awk '{print ($1 > $3) ? \"red\" : \"blue\"}'")
        .output;
  };
  EXPECT_EQ(cornerOf(""), "blue\n");
  EXPECT_EQ(cornerOf("--zoom 2.5"), "red\n");
  EXPECT_EQ(test::tavrel("record " + file("no.mov") + " --zoom 0.5").status, 2);
  const CommandResult tooFar = test::tavrel("record " + file("no.mov") + " --microphone none --zoom 999");
  EXPECT_EQ(tooFar.status, 1);
  EXPECT_THAT(tooFar.output, ::testing::HasSubstr("--zoom 999: this camera enlarges up to"));
}

TEST_F(RecordCommandTest, TheMovieIsWhatWasAskedFor) {
  const std::string movie = file("movie.mov");
  const RecordingObservation seen = recordTogether(movie, "--size 320x240 --fps 25 --duration 3");
  EXPECT_EQ(
      test::probe("-select_streams v -show_entries stream=codec_name,width,height,pix_fmt,color_range,color_space,"
                  "color_transfer,color_primaries -of csv=p=0 " +
                  movie),
      (std::vector<std::string>{"h264,320,240,yuv420p,tv,smpte170m,bt709,bt709"}));
  EXPECT_EQ(test::probe("-select_streams a -show_entries stream=codec_name,sample_rate,channels -of csv=p=0 " + movie),
            (std::vector<std::string>{"aac,48000,1"}));

  ASSERT_GE(seen.frameTimes.size(), 20U);
  // Frames are stamped as they arrive: at their own 25th of a second, on a busy machine later.
  std::vector<double> delays;
  for (std::size_t i = 0; i < seen.frameTimes.size(); ++i) {
    delays.push_back(seen.frameTimes[i] - seen.counters[i].value() / 25.0);
  }
  std::sort(delays.begin(), delays.end());
  EXPECT_LE(delays[delays.size() / 2] - delays.front(), 0.12);
  EXPECT_GE(seen.flashes.size(), 1U);
  EXPECT_NEAR(seen.soundLength(), 3, 0.3);
}

TEST_F(RecordCommandTest, APauseLeavesNoTraceInEitherTrack) {
  const std::string movie = file("movie.mov");
  const RecordingObservation seen =
      recordTogether(movie, "--size 320x240 --fps 25 --duration 6.5 --pause-at 2.2 --resume-at 4.2");
  EXPECT_NEAR(seen.frameTimes.back(), 4.5, 0.15);
  EXPECT_NEAR(seen.soundLength(), 4.5, 0.15);
  EXPECT_LT(seen.largestSoundStep, 0.001);
  for (std::size_t i = 1; i < seen.frameTimes.size(); ++i) {
    const std::uint32_t framesBetween = seen.counters[i].value() - seen.counters[i - 1].value();
    if (framesBetween > 20) {  // the pause: hardly more than a frame's time in the movie
      EXPECT_LE(seen.frameTimes[i] - seen.frameTimes[i - 1], 0.085);
    }
    EXPECT_GT(seen.frameTimes[i], seen.frameTimes[i - 1]);
  }
  EXPECT_GE(seen.flashes.size(), 2U);
}

TEST_F(RecordCommandTest, AnEndByForceLosesLittle) {
  for (int round = 0; round < 10; ++round) {
    const std::string movie = file("killed.mov");
    const pid_t child = fork();
    if (child == 0) {
      execl(TAVREL_PROGRAM, "tavrel", "record", movie.c_str(), "--size", "320x240", "--fps", "25", nullptr);
      _exit(127);
    }
    while (!std::filesystem::exists(movie)) std::this_thread::sleep_for(std::chrono::milliseconds(2));
    // What was recorded before the file appeared counts too, so the limit is looser by the encoder's delay.
    const auto start = std::chrono::steady_clock::now();
    const auto lifetime = std::chrono::milliseconds(500 + 211 * round);
    std::this_thread::sleep_for(lifetime);
    kill(child, SIGKILL);
    const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
    waitpid(child, nullptr, 0);
    const auto times = test::probe("-select_streams v -show_entries packet=pts_time -of csv=p=0 " + movie);
    ASSERT_FALSE(times.empty()) << "killed after " << seconds << " s";
    double last = 0;
    for (const std::string& time : times) last = std::max(last, std::stod(time));
    EXPECT_GE(last, seconds - 1.5) << "killed after " << seconds << " s";
    std::filesystem::remove(movie);
  }
}

TEST_F(RecordCommandTest, AHangUpEndsTheRecordingAndAnotherOfThatNameIsRefused) {
  const std::string movie = file("movie.mov");
  const pid_t child = fork();
  if (child == 0) {
    execl(TAVREL_PROGRAM, "tavrel", "record", movie.c_str(), "--size", "320x240", nullptr);
    _exit(127);
  }
  for (int i = 0; i < 2000 && !std::filesystem::exists(movie); ++i) {
    std::this_thread::sleep_for(std::chrono::milliseconds(10));
  }
  const CommandResult second = test::tavrel("record --force --duration 1 " + movie);
  kill(child, SIGHUP);
  int status = 0;
  waitpid(child, &status, 0);
  EXPECT_TRUE(WIFEXITED(status) && WEXITSTATUS(status) == 0);
  EXPECT_EQ(second.status, 1);
  EXPECT_EQ(second.output, "tavrel: " + movie + " is being written already\n");
  EXPECT_EQ(RecordingObservation::of(movie).error, "");
}

TEST_F(RecordCommandTest, MoviesAndPicturesCanBeTheScene) {
  ASSERT_EQ(
      test::shell("ffmpeg -v error -f lavfi -i testsrc=size=192x108:rate=10:duration=1 " + file("scene.avi")).status,
      0);
  const std::string movie = file("movie.mp4");
  ASSERT_EQ(test::tavrel("record " + movie + " --camera file:" + file("scene.avi") +
                         " --microphone none --size 192x108 --fps 10 --duration 1.5 --mirror")
                .status,
            0);
  EXPECT_EQ(test::probe("-show_entries stream=codec_type,width,height -of csv=p=0 " + movie),
            (std::vector<std::string>{"video,192,108"}));
  // The same, mirrored by somebody else: equal but for coding.
  const CommandResult compared = test::shell("ffmpeg -v info -i " + movie + " -i " + file("scene.avi") +
                                             " -frames:v 8 -lavfi '[1]hflip,format=yuv420p[b];[0][b]psnr' -f null -");
  const auto average = compared.output.find("average:");
  ASSERT_NE(average, std::string::npos) << compared.output;
  EXPECT_GT(std::stod(compared.output.substr(average + 8)), 25) << compared.output;
}

TEST_F(RecordCommandTest, MirroredBeforeAndAfterASwitch) {
  const std::string movie = file("movie.mov");
  const CommandResult result = test::tavrel("record " + movie + " --microphone none --size 320x240 --fps 10" +
                                            " --duration 3 --switch-at 1 --mirror");
  ASSERT_EQ(result.status, 0) << result.output;
  int before = 0;
  int after = 0;
  forEachSample(movie, MediaType::video, [&](SampleBuffer& sample) {
    const auto buffer = sample.imageBuffer();
    buffer->lockBaseAddress(PixelBufferLock::readWrite);
    const auto readsAsItIs = SyntheticScene::decodeFrameCounter(buffer->baseAddress(), buffer->bytesPerRow(), 320, 240);
    for (std::size_t y = 0; y < 240; ++y) {
      auto* const row = reinterpret_cast<std::uint32_t*>(buffer->baseAddress() + y * buffer->bytesPerRow());
      std::reverse(row, row + 320);
    }
    const auto readsMirrored =
        SyntheticScene::decodeFrameCounter(buffer->baseAddress(), buffer->bytesPerRow(), 320, 240);
    buffer->unlockBaseAddress(PixelBufferLock::readWrite);
    EXPECT_FALSE(readsAsItIs.has_value()) << "at " << sample.presentationTimeStamp().seconds() << " s";
    // Blurred frames cannot be read either way.
    if (readsMirrored) ++(sample.presentationTimeStamp().seconds() < 1 ? before : after);
  });
  EXPECT_GT(before, 3);
  EXPECT_GT(after, 5);
}

TEST_F(RecordCommandTest, AnimatedStickersPlayWithTheFrames) {
  std::vector<test::GifFrameSpec> frames;
  for (const char color : std::string("rgb")) {
    frames.push_back({.rows = std::vector(8, std::string(8, color)), .delay = 40});
  }
  const Data gif = test::makeGif(8, 8, frames, 0);
  std::ofstream(file("a.gif"), std::ios::binary).write(reinterpret_cast<const char*>(gif.data()), std::ssize(gif));
  const std::string movie = file("movie.mov");
  const CommandResult result = test::tavrel("record " + movie + " --microphone none --size 192x128 --fps 20" +
                                            " --duration 2.6 --gif " + file("a.gif") + "@96,64,96,64");
  ASSERT_EQ(result.status, 0) << result.output;
  int compared = 0;
  forEachSample(movie, MediaType::video, [&](SampleBuffer& sample) {
    const double time = sample.presentationTimeStamp().seconds();
    // Not within two frames of a change: on a busy machine the animation may have begun with frames that were lost, and
    // show a picture late that is not ready.
    if (const double phase = std::fmod(time, 0.4); phase < 0.11 || phase > 0.29) return;
    const auto buffer = sample.imageBuffer();
    buffer->lockBaseAddress(PixelBufferLock::readOnly);
    const std::uint8_t* const pixel = buffer->baseAddress() + 96 * buffer->bytesPerRow() + 144 * std::size_t{4};
    const std::size_t due = static_cast<std::size_t>(time / 0.4) % 3;  // of red, green, blue
    for (std::size_t i = 0; i < 3; ++i) {
      EXPECT_NEAR(pixel[2 - i], i == due ? 255 : 0, 30) << "component " << i << " at " << time << " s";
    }
    buffer->unlockBaseAddress(PixelBufferLock::readOnly);
    ++compared;
  });
  EXPECT_GE(compared, 10) << result.output;
}

TEST_F(RecordCommandTest, TheCameraIsSwitchedAndASnapshotTakenOnTime) {
  const std::string movie = file("movie.mov");
  const CommandResult result =
      test::tavrel("record " + movie + " --microphone none --size 320x240 --fps 25 --duration 3 --switch-at 1 " +
                   "--snapshot " + file("still.png") + " --snapshot-at 2");
  ASSERT_EQ(result.status, 0) << result.output;
  // Green grows where the other camera looks; over the switch the last frame stands, blurred, and nothing is black.
  std::vector<bool> isOther;
  forEachSample(movie, MediaType::video, [&](SampleBuffer& sample) {
    const auto buffer = sample.imageBuffer();
    buffer->lockBaseAddress(PixelBufferLock::readOnly);
    const std::uint8_t* const pixel = buffer->baseAddress() + 60 * buffer->bytesPerRow() + 20 * std::size_t{4};
    EXPECT_GT(pixel[0] + pixel[1] + pixel[2], 150);
    isOther.push_back(pixel[1] > pixel[0]);
    buffer->unlockBaseAddress(PixelBufferLock::readOnly);
  });
  ASSERT_FALSE(isOther.empty());
  EXPECT_FALSE(isOther.front());
  EXPECT_TRUE(isOther.back());
  EXPECT_TRUE(std::is_sorted(isOther.begin(), isOther.end()));
  const auto still = ImageSource::createWithFile(file("still.png")).value()->imageAtIndex(0).value();
  EXPECT_EQ(still->width(), 320U);
  EXPECT_EQ(still->height(), 240U);
}

TEST_F(RecordCommandTest, DevicesAreListedForPeopleAndPrograms) {
  const CommandResult listed = test::shell("TAVREL_CAPTURE=virtual " + std::string(TAVREL_PROGRAM) + " devices");
  EXPECT_EQ(listed.status, 0);
  EXPECT_NE(listed.output.find("Virtual front camera\n    virtual:front, virtual, front\n    320x240 1-120 fps\n"),
            std::string::npos)
      << listed.output;
  const CommandResult json = test::shell("TAVREL_CAPTURE=virtual " + std::string(TAVREL_PROGRAM) +
                                         " devices --json | python3 -c 'import json, sys; print([d[\"id\"] for d in "
                                         "json.load(sys.stdin) if d[\"type\"] != \"encoder\"])'");
  EXPECT_EQ(json.output, "['virtual:back', 'virtual:front', 'virtual:microphone', 'graphics']\n");
  const CommandResult other = test::shell("TAVREL_GPU=no-such TAVREL_CAPTURE=virtual " + std::string(TAVREL_PROGRAM) +
                                          " record " + file("movie.mov") + " --duration 1");
  EXPECT_EQ(other.status, 1);
  EXPECT_THAT(other.output,
              testing::MatchesRegex("tavrel: TAVREL_GPU is \"no-such\", which is no graphics device of this "
                                    "machine; there are: .*software.*\n"));
  const CommandResult lost = test::shell("(" + std::string(TAVREL_PROGRAM) + " devices >/dev/full)");
  EXPECT_EQ(lost.status, 1);
  EXPECT_EQ(lost.output, "tavrel: standard output cannot be written: No space left on device\n");
}

TEST_F(RecordCommandTest, BadInputIsSaidInOneLine) {
  struct Case {
    std::string arguments;
    int status;
    std::string message;
  };
  const std::string movie = file("movie.mov");
  const Case cases[] = {
      {movie + " --size 0x0", 2, "--size 0x0: expected WIDTHxHEIGHT, each from 16 to 8192"},
      {movie + " --size 999999x1", 2, "--size 999999x1: expected WIDTHxHEIGHT, each from 16 to 8192"},
      {movie + " --size large", 2, "--size large: expected WIDTHxHEIGHT, each from 16 to 8192"},
      {movie + " --switch-at -1", 2, "--switch-at -1: expected 0 or more"},
      {movie + " --fps 0", 2, "--fps 0: expected 1 to 240"},
      {movie + " --pause-at 2 --resume-at 1", 2, "--resume-at 1: expected more than --pause-at 2"},
      {file("movie.wmv"), 2, file("movie.wmv") + ": a movie's name ends in .mov, .mp4, .mkv or .webm"},
  };
  for (const Case& each : cases) {
    const CommandResult result = test::tavrel("record --duration 1 " + each.arguments);
    EXPECT_EQ(result.status, each.status) << each.arguments;
    EXPECT_EQ(result.output, "tavrel: " + each.message + "\n") << each.arguments;
  }
  // Texts of the platform: one line that names the file.
  for (const std::string& arguments : {movie + " --camera file:" + file("none.mov"), movie + " --camera side",
                                       file("none/movie.mov"), movie + " --microphone file:" + file("none.wav")}) {
    const CommandResult result = test::tavrel("record --duration 1 " + arguments);
    EXPECT_EQ(result.status, 1) << arguments;
    EXPECT_EQ(std::count(result.output.begin(), result.output.end(), '\n'), 1) << result.output;
    EXPECT_EQ(result.output.rfind("tavrel: ", 0), 0U) << result.output;
  }
  EXPECT_TRUE(isEmpty());
}

TEST_F(RecordCommandTest, ARecordingWithoutAPictureFailsAndLeavesNoFile) {
  const std::string movie = file("movie.mov");
  const CommandResult result = test::tavrel("record " + movie + " --duration 0.5 --pause-at 0 --size 160x120");
  EXPECT_EQ(result.status, 1);
  EXPECT_NE(result.output.find("no picture came from the camera"), std::string::npos) << result.output;
  EXPECT_FALSE(std::filesystem::exists(movie));
}

TEST_F(RecordCommandTest, OddSizesAreStoredEvenAndSaidSo) {
  const std::string movie = file("movie.mov");
  const CommandResult result = test::tavrel("record " + movie + " --size 321x241 --fps 10 --duration 0.5");
  EXPECT_EQ(result.status, 0);
  EXPECT_NE(result.output.find("321x241 is stored as 322x242"), std::string::npos) << result.output;
  EXPECT_EQ(test::probe("-select_streams v -show_entries stream=width,height -of csv=p=0 " + movie),
            (std::vector<std::string>{"322,242"}));
}

TEST_F(RecordCommandTest, AFullDiskKeepsWhatWasRecorded) {
  const std::string movie = file("movie.mov");
  // Files may grow to 560 KiB, most of them set aside for the index; writing on gives "File too large", as a full disk
  // gives its own reason.
  const CommandResult result = test::shell("trap '' XFSZ; ulimit -f 1120; " + std::string(TAVREL_PROGRAM) + " record " +
                                           movie + " --size 640x480 --fps 25 --duration 30");
  EXPECT_EQ(result.status, 1);
  const auto said = result.output.find("the recording broke off: ");
  ASSERT_NE(said, std::string::npos) << result.output;
  EXPECT_NE(result.output.find("is kept\n", said), std::string::npos) << result.output;
  const auto times = test::probe("-select_streams v -show_entries frame=pts_time -of csv=p=0 " + movie);
  ASSERT_FALSE(times.empty());
  const double until = std::stod(result.output.substr(result.output.find("up to ") + 6));
  EXPECT_GE(std::stod(times.back()) + 0.15, until);
}

}  // namespace
}  // namespace tavrel
