// A movie through the graph into another one, in pull mode: against a hand-written loop of the same steps (decode,
// convert, upload, one draw, read back, convert, encode with the same settings), against itself backwards, and against
// the ffmpeg program, which spares the GPU's part.

#include <libyuv/convert_argb.h>
#include <unistd.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <string>
#include <vector>

#include "Support/BareGL.h"
#include "Support/BareMovie.h"
#include "Support/Comparison.h"

namespace tavrel::benchmarks {
namespace {

constexpr int kWidth = 1280;
constexpr int kHeight = 720;
constexpr int kSeconds = 8;
constexpr int kFrames = kSeconds * 30;
constexpr int kTimescale = 15360;

struct Files {
  Files() {
    char name[] = "/tmp/tavrel-benchmark-XXXXXX";
    require(mkdtemp(name), "a temporary folder");
    folder = name;
    input = folder / "in.mp4";
    output = folder / "out.mov";
    bareOutput = folder / "bare.mov";
    require(std::system(("ffmpeg -nostdin -v error -y -f lavfi -i testsrc2=size=1280x720:rate=30:duration=" +
                         std::to_string(kSeconds) + " -c:v libx264 -preset medium -bf 3 -g 120 " + input.string())
                            .c_str()) == 0,
            "making the movie");
  }
  Files(const Files&) = delete;
  Files& operator=(const Files&) = delete;
  ~Files() { std::filesystem::remove_all(folder); }

  std::filesystem::path folder;
  std::filesystem::path input;
  std::filesystem::path output;
  std::filesystem::path bareOutput;
};

void transcodeBare(const BareContext& context, const Files& files) {
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
    context.use();
    BareMovieWriter writer(files.bareOutput, kWidth, kHeight, kTimescale);
    const BarePass pass(kTavrelGPUImageVertexShaderString, kTavrelGPUImagePassthroughFragmentShaderString);
    const BareTexture texture(kWidth, kHeight);
    const BareTarget target(kWidth, kHeight);
    std::vector<std::uint8_t> bgra(std::size_t{kWidth} * kHeight * 4);
    std::int64_t frames = 0;
    readBareMovie(files.input, [&](const AVFrame& frame) {
      libyuv::I420ToARGBMatrix(frame.data[0], frame.linesize[0], frame.data[1], frame.linesize[1], frame.data[2],
                               frame.linesize[2], bgra.data(), kWidth * 4, &libyuv::kYuvH709Constants, kWidth, kHeight);
      glActiveTexture(GL_TEXTURE4);
      glBindTexture(GL_TEXTURE_2D, texture.name());
      glTexSubImage2D(GL_TEXTURE_2D, 0, 0, 0, kWidth, kHeight, GL_BGRA_EXT, GL_UNSIGNED_BYTE, bgra.data());
      pass.draw(texture, target);
      glReadPixels(0, 0, kWidth, kHeight, GL_BGRA_EXT, GL_UNSIGNED_BYTE, bgra.data());
      writer.write(bgra.data(), frame.pts);
      ++frames;
    });
    require(frames == kFrames, "every frame");
    BareContext::useGraph();
  });
}

void transcode(const Files& files, bool isReversed) {
  const auto movie = std::make_shared<TavrelGPUImageMovie>(files.input);
  movie->setReverseVideo(isReversed);
  const auto writer = std::make_shared<TavrelGPUImageMovieWriter>(files.output, Size{kWidth, kHeight});
  movie->addTarget(writer);
  movie->enableSynchronizedEncodingUsingMovieWriter(writer);
  DispatchSemaphore ended(0);
  writer->setCompletionBlock([&] { ended.signal(); });
  writer->startRecording();
  movie->startProcessing();
  ended.wait();
  DispatchSemaphore finished(0);
  writer->finishRecordingWithCompletionHandler([&] { finished.signal(); });
  finished.wait();
  require(!writer->error(), "the movie writer");
  std::int64_t frames = 0;
  readBareMovie(files.output, [&](const AVFrame&) { ++frames; });
  require(frames == kFrames, "every frame");
}

/// The check of the result costs as much on the other side.
void checkBare(const Files& files) {
  std::int64_t frames = 0;
  readBareMovie(files.bareOutput, [&](const AVFrame&) { ++frames; });
  require(frames == kFrames, "every frame");
}

void againstHandWrittenLoop(benchmark::State& state) {
  const Files files;
  std::unique_ptr<BareContext> context;
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
    TavrelGPUImageContext::useImageProcessingContext();
    context = std::make_unique<BareContext>();
  });
  for (auto iteration : state) {
    const Comparison comparison = compare(
        5, 1,
        [&] {
          transcodeBare(*context, files);
          checkBare(files);
        },
        [&] { transcode(files, false); });
    report(state, comparison);
    state.counters["throughput_of_limit"] = 1 / comparison.ratio;
    state.counters["bytes_of_limit"] = static_cast<double>(std::filesystem::file_size(files.output)) /
                                       static_cast<double>(std::filesystem::file_size(files.bareOutput));
  }
}
BENCHMARK(againstHandWrittenLoop)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);

void reverseAgainstForward(benchmark::State& state) {
  const Files files;
  for (auto iteration : state) {
    const Comparison comparison = compare(
        5, 1, [&] { transcode(files, false); }, [&] { transcode(files, true); });
    report(state, comparison);
    state.counters["cost_of_forward"] = comparison.ratio;
  }
}
BENCHMARK(reverseAgainstForward)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);

void againstFfmpegProgram(benchmark::State& state) {
  const Files files;
  const std::string command = "ffmpeg -nostdin -v error -y -i " + files.input.string() +
                              " -c:v libx264 -preset faster -crf 20 -g 120 -x264-params force-cfr=1 " +
                              files.bareOutput.string();
  for (auto iteration : state) {
    const Comparison comparison = compare(
        5, 1,
        [&] {
          require(std::system(command.c_str()) == 0, "ffmpeg");
          checkBare(files);
        },
        [&] { transcode(files, false); });
    report(state, comparison);
    state.counters["throughput_of_ffmpeg"] = 1 / comparison.ratio;
  }
}
BENCHMARK(againstFfmpegProgram)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace tavrel::benchmarks

BENCHMARK_MAIN();
