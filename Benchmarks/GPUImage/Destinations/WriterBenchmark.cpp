// The movie writer against a hand-written loop of the same steps with the same settings: one draw, one read-back, one
// conversion, one encoded frame, one packet in the file.

#include <libyuv/convert.h>
#include <unistd.h>

#include <filesystem>
#include <string>
#include <vector>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavformat/avformat.h>
#include <libavutil/opt.h>
}

#include "Platform/Capture/Virtual/SyntheticScene.h"
#include "Platform/Graphics/PixelBuffer.h"
#include "Support/BareGL.h"
#include "Support/Comparison.h"

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

/// The loop as one writes it by hand.
class BareWriter {
 public:
  explicit BareWriter(const std::filesystem::path& file) {
    require(avformat_alloc_output_context2(&format_, nullptr, "mov", file.c_str()) >= 0, "a movie");
    const AVCodec* const codec = avcodec_find_encoder_by_name("libx264");
    context_ = avcodec_alloc_context3(codec);
    context_->width = kWidth;
    context_->height = kHeight;
    context_->pix_fmt = AV_PIX_FMT_YUV420P;
    context_->time_base = {1, kTimescale};
    context_->framerate = {kFramesPerSecond, 1};
    context_->max_b_frames = 0;
    context_->gop_size = 120;
    context_->flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
    av_opt_set(context_->priv_data, "preset", "faster", 0);
    av_opt_set(context_->priv_data, "crf", "20", 0);
    av_opt_set(context_->priv_data, "x264-params", "force-cfr=1:rc-lookahead=10", 0);
    require(avcodec_open2(context_, codec, nullptr) >= 0, "libx264");
    stream_ = avformat_new_stream(format_, nullptr);
    avcodec_parameters_from_context(stream_->codecpar, context_);
    stream_->time_base = context_->time_base;
    require(avio_open(&format_->pb, file.c_str(), AVIO_FLAG_WRITE) >= 0, "opening the file");
    AVDictionary* options = nullptr;
    av_dict_set(&options, "movflags", "frag_keyframe+empty_moov", 0);
    av_dict_set(&options, "frag_duration", "1000000", 0);
    require(avformat_write_header(format_, &options) >= 0, "the header");
    av_dict_free(&options);
    frame_ = av_frame_alloc();
    frame_->format = AV_PIX_FMT_YUV420P;
    frame_->width = kWidth;
    frame_->height = kHeight;
    require(av_frame_get_buffer(frame_, 0) >= 0, "a frame");
    packet_ = av_packet_alloc();
  }
  BareWriter(const BareWriter&) = delete;
  BareWriter& operator=(const BareWriter&) = delete;
  ~BareWriter() {
    avcodec_send_frame(context_, nullptr);
    writePackets();
    av_write_trailer(format_);
    avio_closep(&format_->pb);
    av_packet_free(&packet_);
    av_frame_free(&frame_);
    avcodec_free_context(&context_);
    avformat_free_context(format_);
  }

  void write(const std::vector<std::uint8_t>& bgra, int number) {
    av_frame_make_writable(frame_);
    libyuv::ARGBToI420(bgra.data(), kWidth * 4, frame_->data[0], frame_->linesize[0], frame_->data[1],
                       frame_->linesize[1], frame_->data[2], frame_->linesize[2], kWidth, kHeight);
    frame_->pts = std::int64_t{number} * kTimescale / kFramesPerSecond;
    require(avcodec_send_frame(context_, frame_) >= 0, "encoding");
    writePackets();
  }

 private:
  void writePackets() {
    while (avcodec_receive_packet(context_, packet_) >= 0) {
      av_packet_rescale_ts(packet_, context_->time_base, stream_->time_base);
      packet_->stream_index = 0;
      require(av_interleaved_write_frame(format_, packet_) >= 0, "writing");
    }
  }

  AVFormatContext* format_ = nullptr;
  AVCodecContext* context_ = nullptr;
  AVStream* stream_ = nullptr;
  AVFrame* frame_ = nullptr;
  AVPacket* packet_ = nullptr;
};

void recordBare(const BareContext& context, const std::vector<BareTexture>& textures,
                const std::filesystem::path& file) {
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
    context.use();
    BareWriter writer(file);
    const BarePass pass(kTavrelGPUImageVertexShaderString, kTavrelGPUImagePassthroughFragmentShaderString);
    const BareTarget target(kWidth, kHeight);
    std::vector<std::uint8_t> bgra(std::size_t{kWidth} * kHeight * 4);
    for (int i = 0; i < kFrames; ++i) {
      pass.draw(textures[i % kPictures], target);
      glReadPixels(0, 0, kWidth, kHeight, GL_BGRA_EXT, GL_UNSIGNED_BYTE, bgra.data());
      writer.write(bgra, i);
    }
    BareContext::useGraph();
  });
}

void recordByWriter(const std::vector<std::shared_ptr<TavrelGPUImageFramebuffer>>& framebuffers,
                    const std::filesystem::path& file) {
  const auto writer = std::make_shared<TavrelGPUImageMovieWriter>(file, Size{kWidth, kHeight});
  writer->setEncodingLiveVideo(false);
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
