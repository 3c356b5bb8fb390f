// Ways to get a drawn frame to an encoder as 4:2:0: reading it back as BGRA and converting it on the processor, which
// is what the movie writer does; reading it by way of a pixel buffer object, a frame later; and drawing the planes,
// which are three eighths of the bytes.

#include <GLES3/gl3.h>
#include <libyuv/convert_from_argb.h>
#include <sys/resource.h>

#include <algorithm>
#include <cstdlib>
#include <vector>

#include "Support/BareGL.h"
#include "Support/Comparison.h"
#include "TavrelCaptureTesting.h"

namespace tavrel::benchmarks {
namespace {

constexpr int kBlocks = 15;
constexpr int kFrames = 12;
/// 16 to 235 and 240, of BT.601, rounded as the processor's are.
constexpr int kLargestDifference = 2;

/// Four samples of luma as one pixel, B, G, R, A in memory.
constexpr const char* kLumaShader = R"(
varying highp vec2 textureCoordinate;
uniform sampler2D inputImageTexture;
uniform highp float step;
highp float luma(highp float offset) {
  return dot(texture2D(inputImageTexture, textureCoordinate + vec2(offset * step, 0.0)).rgb,
             vec3(0.256788, 0.504129, 0.097906)) + 0.062745;
}
void main() { gl_FragColor = vec4(luma(0.5), luma(-0.5), luma(-1.5), luma(1.5)); }
)";

/// Two pairs of chroma as one pixel; between four pixels the sampler gives their mean.
constexpr const char* kChromaShader = R"(
varying highp vec2 textureCoordinate;
uniform sampler2D inputImageTexture;
uniform highp float step;
highp vec2 chroma(highp float offset) {
  highp vec3 color = texture2D(inputImageTexture, textureCoordinate + vec2(offset * step, 0.0)).rgb;
  return vec2(dot(color, vec3(-0.148223, -0.290993, 0.439216)), dot(color, vec3(0.439216, -0.367788, -0.071427))) +
         0.501961;
}
void main() {
  highp vec2 first = chroma(-1.0);
  highp vec2 second = chroma(1.0);
  gl_FragColor = vec4(second.x, first.y, first.x, second.y);
}
)";

double processorSeconds() {
  rusage usage{};
  getrusage(RUSAGE_SELF, &usage);
  const auto seconds = [](const timeval& time) {
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_usec) / 1e6;
  };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

/// The ways by hand, each for frames that are uploaded and drawn by the beauty filter's shader or by a copy.
class Ways {
 public:
  Ways(int width, int height, bool isHeavy)
      : width_(width),
        height_(height),
        input_(width, height),
        target_(width, height),
        planes_(width / 4, height * 3 / 2),
        draw_(kTavrelGPUImageVertexShaderString,
              isHeavy ? kDOTGPUImageBeautyFragmentShaderString : kTavrelGPUImagePassthroughFragmentShaderString),
        luma_(kTavrelGPUImageVertexShaderString, kLumaShader),
        chroma_(kTavrelGPUImageVertexShaderString, kChromaShader),
        picture_(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 4),
        bgra_(picture_.size()),
        converted_(picture_.size() * 3 / 8),
        drawn_(converted_.size()) {
    for (std::size_t i = 0; i < picture_.size(); ++i) picture_[i] = static_cast<std::uint8_t>(i / 64 + i % 4 * 40);
    if (isHeavy) {
      draw_.setVector2("singleStepOffset", 2 / static_cast<float>(width), 2 / static_cast<float>(height));
      draw_.setVector4("params", 0.7F, 0.85F, 0.25F, 0.25F);
      draw_.setFloat("brightness", 0);
    }
    luma_.setFloat("step", 1 / static_cast<float>(width));
    chroma_.setFloat("step", 1 / static_cast<float>(width));
    glGenBuffers(2, buffers_);
    for (const GLuint buffer : buffers_) {
      glBindBuffer(GL_PIXEL_PACK_BUFFER, buffer);
      glBufferData(GL_PIXEL_PACK_BUFFER, static_cast<GLsizeiptr>(bgra_.size()), nullptr, GL_STREAM_READ);
    }
    glBindBuffer(GL_PIXEL_PACK_BUFFER, 0);
  }

  void readBGRA() {
    drawFrame();
    target_.bind();
    glReadPixels(0, 0, width_, height_, GL_BGRA_EXT, GL_UNSIGNED_BYTE, bgra_.data());
  }
  void convertOnProcessor() {
    readBGRA();
    convert(bgra_.data());
  }
  void readByBuffer() {
    drawFrame();
    target_.bind();
    glBindBuffer(GL_PIXEL_PACK_BUFFER, buffers_[frame_ % 2]);
    glReadPixels(0, 0, width_, height_, GL_BGRA_EXT, GL_UNSIGNED_BYTE, nullptr);
    glFlush();
    glBindBuffer(GL_PIXEL_PACK_BUFFER, buffers_[++frame_ % 2]);
    const void* const bytes =
        glMapBufferRange(GL_PIXEL_PACK_BUFFER, 0, static_cast<GLsizeiptr>(bgra_.size()), GL_MAP_READ_BIT);
    require(bytes, "mapping a pixel buffer object");
    convert(static_cast<const std::uint8_t*>(bytes));
    glUnmapBuffer(GL_PIXEL_PACK_BUFFER);
    glBindBuffer(GL_PIXEL_PACK_BUFFER, 0);
  }
  void drawPlanes() {
    drawFrame();
    setSampling(GL_NEAREST);
    luma_.drawRows(target_.texture(), planes_, 0, height_);
    setSampling(GL_LINEAR);
    chroma_.drawRows(target_.texture(), planes_, height_, height_ / 2);
    glReadPixels(0, 0, width_ / 4, height_ * 3 / 2, GL_BGRA_EXT, GL_UNSIGNED_BYTE, drawn_.data());
  }

  /// Of the planes that are drawn to those of the processor.
  int largestDifference() {
    convertOnProcessor();
    drawPlanes();
    int largest = 0;
    for (std::size_t i = 0; i < drawn_.size(); ++i) largest = std::max(largest, std::abs(drawn_[i] - converted_[i]));
    return largest;
  }

 private:
  void drawFrame() {
    input_.update(picture_.data());
    draw_.draw(input_, target_);
  }
  void setSampling(GLint filter) {
    glBindTexture(GL_TEXTURE_2D, target_.texture().name());
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, filter);
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_MAG_FILTER, filter);
  }
  void convert(const std::uint8_t* bgra) {
    libyuv::ARGBToNV12(bgra, width_ * 4, converted_.data(), width_,
                       converted_.data() + static_cast<std::ptrdiff_t>(width_) * height_, width_, width_, height_);
  }

  const int width_;
  const int height_;
  const BareTexture input_;
  const BareTarget target_;
  const BareTarget planes_;
  BarePass draw_;
  BarePass luma_;
  BarePass chroma_;
  std::vector<std::uint8_t> picture_;
  std::vector<std::uint8_t> bgra_;
  std::vector<std::uint8_t> converted_;
  std::vector<std::uint8_t> drawn_;
  GLuint buffers_[2] = {};
  std::size_t frame_ = 0;
};

using Way = void (Ways::*)();

/// The wall and processor time of a way against those of converting on the processor.
void compareWays(benchmark::State& state, Way way) {
  const auto width = static_cast<int>(state.range(0));
  const auto height = static_cast<int>(state.range(1));
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
    const BareContext context;
    context.use();
    Ways ways(width, height, state.range(2) != 0);
    require(ways.largestDifference() <= kLargestDifference, "drawing the same planes");
    for (auto iteration : state) {
      double begun = 0;
      std::vector<double> times[2];
      const auto block = [&](Way each, int side) {
        begun = processorSeconds();
        for (int i = 0; i < kFrames; ++i) (ways.*each)();
        times[side].push_back(processorSeconds() - begun);
      };
      const Comparison comparison = compare(
          kBlocks, 1, [&] { block(&Ways::convertOnProcessor, 0); }, [&] { block(way, 1); });
      report(state, comparison);
      std::vector<double> ratios;
      for (std::size_t i = 0; i < times[1].size(); ++i) ratios.push_back(times[1][i] / times[0][i]);
      state.counters["processor_ratio"] = quantile(ratios, 0.5);
      state.counters["own_ms_per_frame"] = comparison.own / kFrames;
    }
    BareContext::useGraph();
  });
}

void arguments(benchmark::internal::Benchmark* benchmark) {
  for (const auto& [width, height] :
       {std::pair(320, 240), std::pair(640, 480), std::pair(1280, 720), std::pair(1920, 1080)}) {
    for (const int isHeavy : {0, 1}) benchmark->Args({width, height, isHeavy});
  }
  benchmark->ArgNames({"width", "height", "beauty"})->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
}
BENCHMARK_CAPTURE(compareWays, readOnly, &Ways::readBGRA)->Apply(arguments);
BENCHMARK_CAPTURE(compareWays, pixelBufferObject, &Ways::readByBuffer)->Apply(arguments);
BENCHMARK_CAPTURE(compareWays, planesDrawn, &Ways::drawPlanes)->Apply(arguments);

}  // namespace
}  // namespace tavrel::benchmarks

BENCHMARK_MAIN();
