// Chains of filters against the same draws one by one in bare GL, in one process and on one thread: each frame is
// uploaded, drawn and read back.

#include <algorithm>
#include <functional>
#include <memory>
#include <utility>
#include <vector>

#include "Capture/Video/CameraScene.h"
#include "Support/BareGL.h"
#include "Support/Comparison.h"
#include "Support/FrameReader.h"

namespace tavrel::benchmarks {
namespace {

constexpr int kBlocks = 15;
constexpr int kRepetitions = 4;

std::shared_ptr<Image> imageOf(const Pixels& pixels, std::size_t side) {
  const auto* const bytes = reinterpret_cast<const std::uint8_t*>(pixels.data());
  return Image::create(side, side, 8, 32, side * 4, kBitmapPremultipliedBGRA,
                       DataProvider::create(Data(bytes, bytes + pixels.size() * 4)));
}

/// The same work by the graph and by hand.
class Work {
 public:
  explicit Work(Size size)
      : size_(size),
        buffer_(PixelBuffer::create(static_cast<std::size_t>(size.width), static_cast<std::size_t>(size.height),
                                    PixelFormat::bgra32)
                    .value()),
        read_(static_cast<std::size_t>(size.width * size.height) * 4) {
    for (std::size_t i = 0; i < read_.size(); ++i) {
      read_[i] = i % 4 == 3 ? 255 : static_cast<std::uint8_t>(i / 97 + i % 4 * 40);
    }
    frame_ = read_;
    bare_.use();
    input_ = std::make_unique<BareTexture>(width(), height());
    table_ = std::make_unique<BareTexture>(kTableSide, kTableSide, tablePixels().data());
    sticker_ = std::make_unique<BareTexture>(kStickerSide, kStickerSide, stickerPixels().data());
    BareContext::useGraph();
    last_ = source_;
  }

  void beauty() {
    append(std::make_shared<TavrelGPUImageBeautifyFilter>());
    draw([this] {
      BarePass pass(kTavrelGPUImageVertexShaderString, kDOTGPUImageBeautyFragmentShaderString);
      pass.setVector2("singleStepOffset", 2 / static_cast<GLfloat>(width()), 2 / static_cast<GLfloat>(height()));
      pass.setVector4("params", 0.7F, 0.85F, 0.25F, 0.25F);
      pass.setFloat("brightness", 0);
      return pass;
    });
  }

  void crop() {
    append(std::make_shared<TavrelGPUImageCropFilter>());
    draw([] { return BarePass(kTavrelGPUImageVertexShaderString, kTavrelGPUImageCropFragmentShaderString); });
  }

  void lookup() {
    const auto filter = std::make_shared<TavrelGPUImageLookupFilter>();
    append(filter);
    show(imageOf(tablePixels(), kTableSide), filter);
    draw([&] { return BarePass::twoInputs(kTavrelGPUImageLookupFragmentShaderString, "intensity", *table_); });
  }

  /// By hand the sticker is placed for each frame, as the first draw.
  void sticker(const Rect& place) {
    const AffineTransform transform = TavrelGetTransform(place, size_, 0);
    const auto placement = std::make_shared<TavrelGPUImagePlacementFilter>();
    placement->setAffineTransform(transform);
    placement->forceProcessingAtSize(size_);
    const auto blend = std::make_shared<TavrelGPUImageAlphaBlendFilter>();
    blend->setMix(1);
    append(blend);
    placement->addTarget(blend, 1);
    show(imageOf(stickerPixels(), kStickerSide), placement);

    const BareTexture* const before = drawn_;
    drawn_ = sticker_.get();
    draw([&] { return BarePass::transform(transform, size_); });
    const BareTexture& placed = *drawn_;
    drawn_ = before;
    draw([&] { return BarePass::twoInputs(kTavrelGPUImageAlphaBlendFragmentShaderString, "mixturePercent", placed); });
  }

  void mirror() {
    const auto filter = std::make_shared<TavrelGPUImageTransformFilter>();
    filter->setAffineTransform(AffineTransform::makeScale(-1, 1));
    append(filter);
    draw([&] { return BarePass::transform(AffineTransform::makeScale(-1, 1), size_); });
  }

  /// A filter of an application's own: some mathematics on each pixel.
  void tone() {
    static constexpr const char* kShader =
        "varying highp vec2 textureCoordinate; uniform sampler2D inputImageTexture; void main() { highp vec4 color = "
        "texture2D(inputImageTexture, textureCoordinate); gl_FragColor = vec4(mix(color.rgb, color.rgb * color.rgb * "
        "(3.0 - 2.0 * color.rgb), 0.1), color.a); }";
    append(std::make_shared<TavrelGPUImageFilter>(kShader));
    draw([] { return BarePass(kTavrelGPUImageVertexShaderString, kShader); });
  }

  Comparison measure() {
    last_->addTarget(reader_);
    for (const auto& picture : pictures_) picture->processImage();
    reader_->keepsBytes = true;
    frameByGraph();
    frameByHand();
    reader_->keepsBytes = false;
    // By hand the sticker's edge takes on the colour of what is transparent.
    std::size_t different = 0;
    require(reader_->bytes.size() == read_.size(), "reading back");
    for (std::size_t i = 0; i < read_.size(); ++i) different += std::abs(read_[i] - reader_->bytes[i]) > 2 ? 1 : 0;
    require(different * 50 < read_.size(), "drawing the same by hand and by the graph");
    return compare(
        kBlocks, kRepetitions, [this] { frameByHand(); }, [this] { frameByGraph(); });
  }

 private:
  int width() const { return static_cast<int>(size_.width); }
  int height() const { return static_cast<int>(size_.height); }

  void append(const std::shared_ptr<TavrelGPUImageFilter>& filter) {
    last_->addTarget(filter, 0);
    last_ = filter;
  }

  void show(const std::shared_ptr<Image>& image, const std::shared_ptr<TavrelGPUImageFilter>& filter) {
    pictures_.push_back(std::make_shared<TavrelGPUImagePicture>(image));
    pictures_.back()->addTarget(filter, dynamic_cast<TavrelGPUImageTwoInputFilter*>(filter.get()) ? 1 : 0);
  }

  /// The pass is made in the context that draws it.
  void draw(const std::function<BarePass()>& makePass) {
    bare_.use();
    targets_.push_back(std::make_unique<BareTarget>(width(), height()));
    steps_.push_back({makePass(), drawn_ ? drawn_ : input_.get()});
    drawn_ = &targets_.back()->texture();
    BareContext::useGraph();
  }

  void frameByGraph() {
    buffer_->lockBaseAddress(PixelBufferLock::readWrite);
    std::memcpy(buffer_->baseAddress(), frame_.data(), frame_.size());
    buffer_->unlockBaseAddress(PixelBufferLock::readWrite);
    source_->processCVPixelBuffer(buffer_, MediaTime::make(++number_, 30), true);
  }

  void frameByHand() {
    bare_.use();
    input_->update(frame_.data());
    for (std::size_t i = 0; i < steps_.size(); ++i) steps_[i].first.draw(*steps_[i].second, *targets_[i]);
    glReadPixels(0, 0, width(), height(), GL_BGRA_EXT, GL_UNSIGNED_BYTE, read_.data());
    BareContext::useGraph();
  }

  Size size_;
  BareContext bare_;
  std::shared_ptr<PixelBuffer> buffer_;
  std::vector<std::uint8_t> frame_, read_;
  std::shared_ptr<TavrelGPUImageCVPixelBufferInput> source_ = std::make_shared<TavrelGPUImageCVPixelBufferInput>();
  std::shared_ptr<TavrelGPUImageOutput> last_;
  std::shared_ptr<FrameReader> reader_ = std::make_shared<FrameReader>();
  std::vector<std::shared_ptr<TavrelGPUImagePicture>> pictures_;
  std::int64_t number_ = 0;

  std::unique_ptr<BareTexture> input_, table_, sticker_;
  std::vector<std::unique_ptr<BareTarget>> targets_;
  std::vector<std::pair<BarePass, const BareTexture*>> steps_;
  const BareTexture* drawn_ = nullptr;
};

template <typename Make>
void compareWork(benchmark::State& state, Make make) {
  const Size size = {static_cast<double>(state.range(0)), static_cast<double>(state.range(1))};
  for (auto iteration : state) {
    TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
      TavrelGPUImageContext::useImageProcessingContext();
      Work work(size);
      make(work, size);
      report(state, work.measure());
    });
  }
}

/// Seven draws.
void effects(benchmark::State& state) {
  compareWork(state, [](Work& work, Size size) {
    const Layout layout(size);
    work.crop();
    work.lookup();
    work.sticker(layout.still);
    work.sticker(layout.animated);
    work.mirror();
  });
}

void beauty(benchmark::State& state) {
  compareWork(state, [](Work& work, Size) { work.beauty(); });
}

/// An eighth of the frame's sides.
void oneSticker(benchmark::State& state) {
  compareWork(state, [](Work& work, Size size) {
    work.sticker({{size.width / 4, size.height / 4}, {size.width / 8, size.height / 8}});
  });
}

void chain(benchmark::State& state) {
  compareWork(state, [&](Work& work, Size) {
    for (std::int64_t i = 0; i < state.range(2); ++i) work.tone();
  });
}

void chains(benchmark::internal::Benchmark* benchmark) {
  for (const auto& [width, height] : {std::pair(320, 240), {640, 480}, {960, 540}, {1280, 720}, {1920, 1080}}) {
    benchmark->Args({width, height, 4});
  }
  for (const int filters : {1, 2, 3, 6, 8}) benchmark->Args({1280, 720, filters});
  benchmark->ArgNames({"width", "height", "filters"})->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
}

void sizes(benchmark::internal::Benchmark* benchmark) {
  for (const auto& [width, height] : {std::pair(320, 240), {640, 480}, {1280, 720}, {1920, 1080}}) {
    benchmark->Args({width, height});
  }
  benchmark->ArgNames({"width", "height"})->Iterations(1)->UseManualTime()->Unit(benchmark::kMillisecond);
}

BENCHMARK(chain)->Apply(chains);
BENCHMARK(effects)->Apply(sizes);
BENCHMARK(beauty)->Apply(sizes);
BENCHMARK(oneSticker)->Apply(sizes);

}  // namespace
}  // namespace tavrel::benchmarks

BENCHMARK_MAIN();
