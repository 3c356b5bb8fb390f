// One kind of work on one picture, over and over: the part of the comparison with other programs
// (Scripts/compare-peers) that is ours, and the limit.
//
//     PeerWork graph|bare WORK PICTURE FRAMES [SECOND [RESULT]]   each frame: upload, draws, read-back; prints
//                                                                 milliseconds a frame
//     PeerWork record CHAIN PICTURE FRAMES MOVIE                  each frame into the movie writer
//     PeerWork shaders WORK WIDTH HEIGHT                          the draws as JSON, for other programs
//
// WORK is passthrough, beautify, blur, lookup or sticker; the latter two take a SECOND picture.

#include <fmt/format.h>

#include <chrono>
#include <cstdio>
#include <cstring>
#include <map>
#include <string>
#include <vector>

#include "Platform/Foundation/JSONString.h"
#include "Support/BareGL.h"
#include "Support/Comparison.h"
#include "Support/FrameReader.h"

namespace tavrel::benchmarks {
namespace {

using Clock = std::chrono::steady_clock;

constexpr int kWarmUp = 5;

/// One draw, as bare GL and other programs need to know it.
struct Pass {
  std::string vertexShader;
  std::string fragmentShader;
  std::map<std::string, std::vector<float>> uniforms;
};

struct Work {
  std::shared_ptr<TavrelGPUImageFilter> filter;
  std::vector<Pass> passes;
};

Work workNamed(const std::string& name, int width, int height) {
  using Blur = TavrelGPUImageGaussianBlurFilter;
  const float stepX = 1 / static_cast<float>(width);
  const float stepY = 1 / static_cast<float>(height);
  if (name == "passthrough") {
    return {std::make_shared<TavrelGPUImageFilter>(),
            {{kTavrelGPUImageVertexShaderString, kTavrelGPUImagePassthroughFragmentShaderString, {}}}};
  }
  if (name == "beautify") {
    return {std::make_shared<TavrelGPUImageBeautifyFilter>(),
            {{kTavrelGPUImageVertexShaderString,
              kDOTGPUImageBeautyFragmentShaderString,
              {{"singleStepOffset", {2 * stepX, 2 * stepY}},
               {"params", {0.7F, 0.85F, 0.25F, 0.25F}},
               {"brightness", {0}}}}}};
  }
  if (name == "blur") {
    constexpr std::size_t kRadius = 4;
    constexpr int kSigma = 2;
    auto filter = std::make_shared<Blur>();
    filter->setBlurRadiusInPixels(kSigma);
    const auto pass = [](float dx, float dy) {
      return Pass{Blur::vertexShaderForOptimizedBlurOfRadius(kRadius, kSigma),
                  Blur::fragmentShaderForOptimizedBlurOfRadius(kRadius, kSigma),
                  {{"texelWidthOffset", {dx}}, {"texelHeightOffset", {dy}}}};
    };
    return {filter, {pass(0, stepY), pass(stepX, 0)}};
  }
  if (name == "lookup") {
    return {std::make_shared<TavrelGPUImageLookupFilter>(),
            {{kTavrelGPUImageTwoInputTextureVertexShaderString,
              kTavrelGPUImageLookupFragmentShaderString,
              {{"intensity", {1}}}}}};
  }
  require(name == "sticker", "knowing this work");
  auto filter = std::make_shared<TavrelGPUImageAlphaBlendFilter>();
  filter->setMix(1);
  return {filter,
          {{kTavrelGPUImageTwoInputTextureVertexShaderString,
            kTavrelGPUImageAlphaBlendFragmentShaderString,
            {{"mixturePercent", {1}}}}}};
}

/// B, G, R, A, top row first.
struct Pixels {
  int width = 0;
  int height = 0;
  Data bytes;

  Size size() const { return {static_cast<double>(width), static_cast<double>(height)}; }

  static Pixels of(const std::shared_ptr<Image>& image) {
    Pixels pixels = {static_cast<int>(image->width()), static_cast<int>(image->height()), {}};
    const auto picture = std::make_shared<TavrelGPUImagePicture>(image);
    picture->useNextFrameForImageCapture();
    const auto filter = std::make_shared<TavrelGPUImageFilter>();
    filter->useNextFrameForImageCapture();
    picture->addTarget(filter);
    picture->processImage();
    const auto processed = filter->imageFromCurrentFramebuffer();
    require(processed != nullptr, "reading a picture");
    const auto bytes = processed->dataProvider()->bytes();
    for (std::size_t row = 0; row < image->height(); ++row) {
      const auto* const begin = bytes.data() + row * processed->bytesPerRow();
      pixels.bytes.insert(pixels.bytes.end(), begin, begin + image->width() * 4);
    }
    return pixels;
  }
};

std::shared_ptr<Image> imageAt(const std::string& path) {
  const auto source = ImageSource::createWithFile(path);
  require(source.has_value(), "opening a picture");
  const auto image = (*source)->imageAtIndex(0);
  require(image.has_value(), "reading a picture");
  return straightImage(*image);
}

void write(const Pixels& pixels, const char* path) {
  const auto image =
      Image::create(static_cast<std::size_t>(pixels.width), static_cast<std::size_t>(pixels.height), 8, 32,
                    static_cast<std::size_t>(pixels.width) * 4,
                    bitmapInfo(kBitmapByteOrder32Little, AlphaInfo::noneSkipFirst), DataProvider::create(pixels.bytes));
  require(image && ImageDestination::write(image, path).has_value(), "writing the result");
}

/// `frame` for each frame; milliseconds of one, after a few that do not count.
double measure(int frames, const std::function<void()>& frame) {
  for (int i = 0; i < kWarmUp; ++i) frame();
  const auto begun = Clock::now();
  for (int i = 0; i < frames; ++i) frame();
  return std::chrono::duration<double, std::milli>(Clock::now() - begun).count() / frames;
}

/// A source that uploads the same picture for each frame, as one that comes from a camera is.
class Feeder {
 public:
  explicit Feeder(const Pixels& pixels)
      : buffer_(PixelBuffer::create(static_cast<std::size_t>(pixels.width), static_cast<std::size_t>(pixels.height),
                                    PixelFormat::bgra32)
                    .value()) {
    buffer_->lockBaseAddress(PixelBufferLock::readWrite);
    const auto rowBytes = static_cast<std::size_t>(pixels.width) * 4;
    for (std::size_t row = 0; row < static_cast<std::size_t>(pixels.height); ++row) {
      std::memcpy(buffer_->baseAddress() + row * buffer_->bytesPerRow(), &pixels.bytes[row * rowBytes], rowBytes);
    }
    buffer_->unlockBaseAddress(PixelBufferLock::readWrite);
  }

  const std::shared_ptr<TavrelGPUImageCVPixelBufferInput>& source() const { return source_; }

  void deliver() {
    // Written to, as far as the graph can see.
    buffer_->lockBaseAddress(PixelBufferLock::readWrite);
    buffer_->unlockBaseAddress(PixelBufferLock::readWrite);
    source_->processCVPixelBuffer(buffer_, MediaTime::make(number_++, 30), true);
  }

 private:
  std::shared_ptr<PixelBuffer> buffer_;
  std::shared_ptr<TavrelGPUImageCVPixelBufferInput> source_ = std::make_shared<TavrelGPUImageCVPixelBufferInput>();
  std::int64_t number_ = 0;
};

double graph(const std::string& name, Pixels& pixels, int frames, const std::shared_ptr<Image>& second) {
  const auto filter = workNamed(name, pixels.width, pixels.height).filter;
  Feeder feeder(pixels);
  const auto reader = std::make_shared<FrameReader>();
  feeder.source()->addTarget(filter, 0);
  filter->addTarget(reader);
  std::shared_ptr<TavrelGPUImagePicture> picture;
  if (second) {
    picture = std::make_shared<TavrelGPUImagePicture>(second);
    picture->addTarget(filter, 1);
    picture->processImage();
  }
  const double milliseconds = measure(frames, [&] {
    feeder.deliver();
    TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
  });
  reader->keepsBytes = true;
  feeder.deliver();
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
  pixels.bytes = std::move(reader->bytes);
  return milliseconds;
}

void setUniforms(BarePass& pass, const std::map<std::string, std::vector<float>>& uniforms) {
  for (const auto& [name, values] : uniforms) {
    if (values.size() == 1) pass.setFloat(name.c_str(), values[0]);
    if (values.size() == 2) pass.setVector2(name.c_str(), values[0], values[1]);
    if (values.size() == 4) pass.setVector4(name.c_str(), values[0], values[1], values[2], values[3]);
  }
}

double bare(const std::string& name, Pixels& pixels, int frames, const std::shared_ptr<Image>& second) {
  const Work work = workNamed(name, pixels.width, pixels.height);
  const Pixels secondPixels = second ? Pixels::of(second) : Pixels();
  double milliseconds = 0;
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
    const BareContext context;
    context.use();
    const BareTexture input(pixels.width, pixels.height);
    const BareTexture secondTexture(second ? secondPixels.width : 1, second ? secondPixels.height : 1,
                                    second ? secondPixels.bytes.data() : nullptr);
    std::vector<BarePass> passes;
    std::vector<BareTarget> targets;
    for (const Pass& described : work.passes) {
      passes.emplace_back(described.vertexShader, described.fragmentShader);
      setUniforms(passes.back(), described.uniforms);
      if (second) passes.back().setSecondTexture(secondTexture);
      targets.emplace_back(pixels.width, pixels.height);
    }
    Data result(pixels.bytes.size());
    milliseconds = measure(frames, [&] {
      input.update(pixels.bytes.data());
      for (std::size_t i = 0; i < passes.size(); ++i) passes[i].draw(i ? targets[i - 1].texture() : input, targets[i]);
      glReadPixels(0, 0, pixels.width, pixels.height, GL_BGRA_EXT, GL_UNSIGNED_BYTE, result.data());
    });
    pixels.bytes = std::move(result);
    BareContext::useGraph();
  });
  return milliseconds;
}

/// The filters of a chain such as "beautify+blur", into the movie writer.
void record(const std::string& chain, const Pixels& pixels, int frames, const char* movie) {
  Feeder feeder(pixels);
  std::shared_ptr<TavrelGPUImageOutput> last = feeder.source();
  for (std::size_t begin = 0; begin < chain.size();) {
    const std::size_t end = std::min(chain.find('+', begin), chain.size());
    const auto filter = workNamed(chain.substr(begin, end - begin), pixels.width, pixels.height).filter;
    last->addTarget(filter);
    last = filter;
    begin = end + 1;
  }
  const auto writer = std::make_shared<TavrelGPUImageMovieWriter>(movie, pixels.size());
  writer->setEncodingLiveVideo(false);
  last->addTarget(writer);
  writer->startRecording();
  for (int i = 0; i < frames; ++i) feeder.deliver();
  DispatchSemaphore finished(0);
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
  writer->finishRecordingWithCompletionHandler([&finished] { finished.signal(); });
  finished.wait();
  require(!writer->error(), "the movie writer");
}

void printShaders(const std::string& name, int width, int height) {
  const auto passes = workNamed(name, width, height).passes;
  std::string text;
  for (const Pass& pass : passes) {
    std::string uniforms;
    for (const auto& [uniform, values] : pass.uniforms) {
      uniforms += fmt::format("{}{}: [{}]", uniforms.empty() ? "" : ", ", jsonString(uniform), fmt::join(values, ", "));
    }
    text += fmt::format("{}{{\"vertex\": {}, \"fragment\": {}, \"uniforms\": {{{}}}}}", text.empty() ? "" : ",\n",
                        jsonString(pass.vertexShader), jsonString(pass.fragmentShader), uniforms);
  }
  std::printf("[%s]\n", text.c_str());
}

int run(const std::vector<std::string>& arguments) {
  require(arguments.size() >= 4, "reading the arguments");
  const std::string& kind = arguments[0];
  if (kind == "shaders") {
    printShaders(arguments[1], std::stoi(arguments[2]), std::stoi(arguments[3]));
    return 0;
  }
  Pixels pixels = Pixels::of(imageAt(arguments[2]));
  const int frames = std::stoi(arguments[3]);
  if (kind == "record") {
    record(arguments[1], pixels, frames, arguments.at(4).c_str());
    return 0;
  }
  std::shared_ptr<Image> second;
  if (arguments.size() > 4 && !arguments[4].empty()) {
    second = arguments[1] == "lookup" ? TavrelLookupImageFromFile(arguments[4]).value() : imageAt(arguments[4]);
  }
  std::printf("%.4f\n", (kind == "graph" ? graph : bare)(arguments[1], pixels, frames, second));
  if (arguments.size() > 5) write(pixels, arguments[5].c_str());
  return 0;
}

}  // namespace
}  // namespace tavrel::benchmarks

int main(int count, char** arguments) { return tavrel::benchmarks::run({arguments + 1, arguments + count}); }
