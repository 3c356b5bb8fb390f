#include "Model/StudioEffect.h"

#include <algorithm>

namespace tavrel::studio {
namespace {

/// Has its tone with the first frame: the filter takes a tone over with the next beauty level that it is given.
class TonedBeauty : public TavrelFaceBeautyCaptureEffect {
 public:
  TavrelCaptureEffectNodes makeNodes(Size frameSize) override {
    TavrelCaptureEffectNodes nodes = TavrelFaceBeautyCaptureEffect::makeNodes(frameSize);
    applyChange("beautyLevel", nodes);
    return nodes;
  }
};

class BeautyEffect : public StudioEffect {
 public:
  BeautyEffect() : StudioEffect({{"Beauty", 0, 1, 0.5}, {"Brightness", 0, 1, 0.5}, {"Tone", 0, 1, 0.5}}) {}
  const char* kind() const override { return "beauty"; }
  std::string title() const override { return "Beauty"; }
  std::shared_ptr<TavrelCaptureEffect> captureEffect() const override { return effect_; }

 private:
  void levelsDidChange() override {
    effect_->setBrightLevel(level(1));
    effect_->setToneLevel(level(2));
    effect_->setBeautyLevel(level(0));
  }

  const std::shared_ptr<TonedBeauty> effect_ = std::make_shared<TonedBeauty>();
};

class BlurEffect : public StudioEffect {
 public:
  BlurEffect() : StudioEffect({{"Radius", 0, 50, 8}}) { filter_->setSigma(level(0)); }
  const char* kind() const override { return "blur"; }
  std::string title() const override { return "Blur"; }
  std::shared_ptr<TavrelCaptureEffect> captureEffect() const override { return effect_; }

 private:
  void levelsDidChange() override { filter_->setSigma(level(0)); }

  const std::shared_ptr<TavrelGPUImageSmoothBlurFilter> filter_ = std::make_shared<TavrelGPUImageSmoothBlurFilter>();
  const std::shared_ptr<TavrelFilterCaptureEffect> effect_ = std::make_shared<TavrelFilterCaptureEffect>(filter_);
};

class TableEffect : public StudioEffect {
 public:
  TableEffect(const std::filesystem::path& file, TavrelLookupTable table) : StudioEffect({}, file) {
    effect_->setImage(std::move(table.image));
    effect_->setTable(std::move(table.table));
  }
  const char* kind() const override { return "table"; }
  std::string title() const override { return file().filename().string(); }
  std::shared_ptr<TavrelCaptureEffect> captureEffect() const override { return effect_; }

 private:
  const std::shared_ptr<TavrelLUTFilterCaptureEffect> effect_ = std::make_shared<TavrelLUTFilterCaptureEffect>();
};

}  // namespace

void StudioEffect::setLevel(std::size_t index, double value) {
  Level& changed = levels_.at(index);
  changed.value = std::clamp(value, changed.least, changed.most);
  levelsDidChange();
}

std::shared_ptr<StudioEffect> makeBeauty() { return std::make_shared<BeautyEffect>(); }

std::shared_ptr<StudioEffect> makeBlur() { return std::make_shared<BlurEffect>(); }

Expected<std::shared_ptr<StudioEffect>> openTable(const std::filesystem::path& file) {
  return TavrelLookupTableFromFile(file).map([&](TavrelLookupTable table) -> std::shared_ptr<StudioEffect> {
    return std::make_shared<TableEffect>(file, std::move(table));
  });
}

}  // namespace tavrel::studio
