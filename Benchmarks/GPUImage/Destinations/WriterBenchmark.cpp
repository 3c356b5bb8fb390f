// The movie writer against a hand-written loop of the same steps with the same settings: one draw, one read-back, one
// conversion, one encoded frame, one packet in the file.

#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

#include "Platform/Graphics/PixelBuffer.h"
#include "Support/BareGL.h"
#include "Support/BareMovie.h"
#include "Support/Comparison.h"
#include "TavrelCaptureTesting.h"

namespace tavrel::benchmarks {
namespace {

constexpr int kWidth = 1280;
constexpr int kHeight = 720;
constexpr int kFrames = 150;
constexpr int kFramesPerSecond = 30;
constexpr int kPictures = 30;
constexpr int kTimescale = 600;

/// A second of the virtual camera in textures, so that neither side pays for the pictures.
std::vector<BareTexture> pictures() {
  SyntheticScene scene(SyntheticScene::Position::front);
  std::vector<BareTexture> textures;
  for (int i = 0; i < kPictures; ++i) {
    const auto buffer = PixelBuffer::create(kWidth, kHeight, PixelFormat::bgra32);
    require(buffer.has_value(), "PixelBuffer::create");
    VirtualFrame frame;
    frame.frameNumber = static_cast<std::uint32_t>(i);
    frame.sceneTime = static_cast<double>(i) / kFramesPerSecond;
    require(scene.render(**buffer, frame).has_value(), "SyntheticScene::render");
    (*buffer)->lockBaseAddress(PixelBufferLock::readOnly);
    textures.emplace_back(kWidth, kHeight, (*buffer)->baseAddress());
    (*buffer)->unlockBaseAddress(PixelBufferLock::readOnly);
  }
  glFinish();
  return textures;
}

void recordBare(const BareContext& context, const std::vector<BareTexture>& textures,
                const std::filesystem::path& file) {
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
    context.use();
    BareMovieWriter writer(file, kWidth, kHeight, kTimescale);
    const BarePass pass(kTavrelGPUImageVertexShaderString, kTavrelGPUImagePassthroughFragmentShaderString);
    const BareTarget target(kWidth, kHeight);
    std::vector<std::uint8_t> bgra(std::size_t{kWidth} * kHeight * 4);
    for (int i = 0; i < kFrames; ++i) {
      pass.draw(textures[i % kPictures], target);
      glReadPixels(0, 0, kWidth, kHeight, GL_BGRA_EXT, GL_UNSIGNED_BYTE, bgra.data());
      writer.write(bgra.data(), std::int64_t{i} * kTimescale / kFramesPerSecond);
    }
    BareContext::useGraph();
  });
}

void recordByWriter(const std::vector<std::shared_ptr<TavrelGPUImageFramebuffer>>& framebuffers,
                    const std::filesystem::path& file) {
  const auto writer = std::make_shared<TavrelGPUImageMovieWriter>(file, Size{kWidth, kHeight});
  writer->setEncodingLiveVideo(false);
  writer->assetWriter()->setIndexRoom(MediaTime::zero());  // the loop leaves none
  writer->startRecording();
  for (int i = 0; i < kFrames; ++i) {
    TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
      writer->setInputFramebuffer(framebuffers[i % kPictures], 0);
      writer->newFrameReadyAtTime(MediaTime::make(i, kFramesPerSecond), 0);
    });
  }
  DispatchSemaphore finished(0);
  writer->finishRecordingWithCompletionHandler([&] { finished.signal(); });
  finished.wait();
  require(!writer->error(), "the movie writer");
}

void movieWriter(benchmark::State& state) {
  char folder[] = "/tmp/tavrel-benchmark-XXXXXX";
  require(mkdtemp(folder), "a temporary folder");
  const std::filesystem::path bareFile = std::filesystem::path(folder) / "bare.mov";
  const std::filesystem::path file = std::filesystem::path(folder) / "writer.mov";

  std::unique_ptr<BareContext> context;
  std::vector<BareTexture> textures;
  std::vector<std::shared_ptr<TavrelGPUImageFramebuffer>> framebuffers;
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
    TavrelGPUImageContext::useImageProcessingContext();
    context = std::make_unique<BareContext>();
    textures = pictures();
    for (const BareTexture& texture : textures) {
      framebuffers.push_back(std::make_shared<TavrelGPUImageFramebuffer>(Size{kWidth, kHeight}, texture.name()));
    }
  });
  for (auto iteration : state) {
    const Comparison comparison = compare(
        7, 1, [&] { recordBare(*context, textures, bareFile); }, [&] { recordByWriter(framebuffers, file); });
    report(state, comparison);
    state.counters["frames_per_second"] = kFrames * 1000 / comparison.own;
    state.counters["throughput_of_limit"] = 1 / comparison.ratio;
    state.counters["bytes_of_limit"] = static_cast<double>(std::filesystem::file_size(file)) /
                                       static_cast<double>(std::filesystem::file_size(bareFile));
  }
  std::filesystem::remove_all(folder);
}
BENCHMARK(movieWriter)->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);

}  // namespace
}  // namespace tavrel::benchmarks

BENCHMARK_MAIN();
