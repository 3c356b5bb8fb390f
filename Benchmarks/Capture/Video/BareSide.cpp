#include "BareSide.h"

namespace tavrel::benchmarks {
BareSide::BareSide(const Layout& layout)
    : width_(static_cast<int>(layout.size.width)), height_(static_cast<int>(layout.size.height)) {
  context_.use();
  const auto passthrough = [] {
    return BarePass(kTavrelGPUImageVertexShaderString, kTavrelGPUImagePassthroughFragmentShaderString);
  };
  frame_ = std::make_unique<BareTexture>(width_, height_);
  table_ = std::make_unique<BareTexture>(kTableSide, kTableSide, tablePixels().data());
  still_ = std::make_unique<BareTexture>(kStickerSide, kStickerSide, stickerPixels().data());
  animated_ = std::make_unique<BareTexture>(kStickerSide, kStickerSide, animation_.data());
  for (int i = 0; i < 9; ++i) targets_.emplace_back(width_, height_);
  BarePass beauty(kTavrelGPUImageVertexShaderString, kDOTGPUImageBeautyFragmentShaderString);
  beauty.setVector2("singleStepOffset", 2 / static_cast<GLfloat>(width_), 2 / static_cast<GLfloat>(height_));
  beauty.setVector4("params", 0.7F, 0.85F, 0.25F, 0.25F);
  beauty.setFloat("brightness", 0);

  const auto placed = [&](const Rect& rectangle) {
    return BarePass::transform(TavrelGetTransform(rectangle, layout.size, 0), layout.size);
  };
  const auto blend = [&](std::size_t second) {
    return BarePass::twoInputs(kTavrelGPUImageAlphaBlendFragmentShaderString, "mixturePercent",
                               targets_[second].texture());
  };
  const auto target = [this](std::size_t index) { return &targets_[index].texture(); };
  const auto step = [this](BarePass pass, const BareTexture* input) { steps_.push_back({pass, input}); };
  step(placed(layout.still), still_.get());                                                               // 0
  step(placed(layout.animated), animated_.get());                                                         // 1
  step(passthrough(), frame_.get());                                                                      // 2: crop
  step(beauty, target(2));                                                                                // 3
  step(BarePass::twoInputs(kTavrelGPUImageLookupFragmentShaderString, "intensity", *table_), target(3));  // 4
  step(blend(0), target(4));                                                                              // 5
  step(blend(1), target(5));                                                                              // 6: encoded
  step(BarePass::transform(AffineTransform::makeScale(-1, 1), layout.size), target(6));                   // 7
  step(passthrough(), target(7));                                                                         // 8: preview
  glFinish();
  BareContext::useGraph();
}

void BareSide::frame(const SampleBuffer& sample) {
  context_.use();
  const auto buffer = sample.imageBuffer();
  buffer->lockBaseAddress(PixelBufferLock::readOnly);
  animated_->update(animation_.data());
  frame_->update(buffer->baseAddress());
  buffer->unlockBaseAddress(PixelBufferLock::readOnly);
  for (std::size_t i = 0; i < steps_.size(); ++i) steps_[i].pass.draw(*steps_[i].input, targets_[i]);
  glFinish();
  BareContext::useGraph();
}

std::array<std::uint8_t, 4> BareSide::encodedPixel() const {
  context_.use();
  targets_[6].bind();
  std::array<std::uint8_t, 4> pixel{};
  glReadPixels(width_ / 2 + 8, height_ / 2 + 8, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, pixel.data());
  BareContext::useGraph();
  return pixel;
}

}  // namespace tavrel::benchmarks
