#include <cmath>

#include "Model/StudioEffect.h"

namespace tavrel::studio {
namespace {

/// Moves within the chain that runs, where a change of place would build the chain anew and lose frames.
class MovableSticker : public TavrelImageStickerCaptureEffect {
 public:
  bool applyChange(std::string_view property, const TavrelCaptureEffectNodes& nodes) override {
    if (property == "image" || nodes.pictures.empty()) return false;
    const auto targets = nodes.pictures.front()->targets();
    const auto placement =
        targets.empty() ? nullptr : std::dynamic_pointer_cast<TavrelGPUImagePlacementFilter>(targets.front());
    if (!placement) return false;
    placement->setAffineTransform(TavrelGetTransform(destRect(), frameSize_, static_cast<float>(rotation())));
    nodes.pictures.front()->processImage();
    return true;
  }
  TavrelCaptureEffectNodes makeNodes(Size frameSize) override {
    frameSize_ = frameSize;
    return TavrelImageStickerCaptureEffect::makeNodes(frameSize);
  }

 private:
  Size frameSize_;
};

class StillSticker : public StickerEffect {
 public:
  StillSticker(const std::filesystem::path& file, std::shared_ptr<Image> image) : StickerEffect({}, file) {
    effect_->setImage(std::move(image));
  }
  std::shared_ptr<TavrelCaptureEffect> captureEffect() const override { return effect_; }
  Size pictureSize() const override {
    return {static_cast<double>(effect_->image()->width()), static_cast<double>(effect_->image()->height())};
  }

 private:
  void showAt(const StickerPlace& place) override {
    if (effect_->rotation() != place.radians) effect_->setRotation(place.radians);
    if (effect_->destRect() != place.rectangle) effect_->setDestRect(place.rectangle);
  }

  const std::shared_ptr<MovableSticker> effect_ = std::make_shared<MovableSticker>();
};

class MovingSticker : public StickerEffect {
 public:
  MovingSticker(const std::filesystem::path& file, std::shared_ptr<TavrelAnimatedStickerCaptureEffect> effect)
      : StickerEffect({}, file), effect_(std::move(effect)) {}
  std::shared_ptr<TavrelCaptureEffect> captureEffect() const override { return effect_; }
  Size pictureSize() const override { return effect_->size(); }

 private:
  void showAt(const StickerPlace& place) override {
    effect_->setDestRect(place.rectangle);
    effect_->setRotation(place.radians);
    if (isZero(effect_->videoSize())) return;  // no chain has it yet
    effect_->setVideoSize(effect_->videoSize());
    effect_->picture()->processImage();
  }

  const std::shared_ptr<TavrelAnimatedStickerCaptureEffect> effect_;
};

}  // namespace

Expected<std::shared_ptr<StickerEffect>> StickerEffect::open(const std::filesystem::path& file) {
  using Result = Expected<std::shared_ptr<StickerEffect>>;
  auto bytes = readFile(file);
  if (!bytes) return tl::unexpected(bytes.error());
  const auto source = createPictures(DataProvider::create(*bytes), file.filename().string());
  if (!source) return tl::unexpected(source.error());
  if ((*source)->count() > 1) {
    return TavrelAnimatedStickerCaptureEffect::create(std::move(*bytes)).and_then([&](const auto& effect) -> Result {
      return std::make_shared<MovingSticker>(file, effect);
    });
  }
  return (*source)->decodedImage(0, {.keepsStraight = true}).and_then([&](const auto& image) -> Result {
    return std::make_shared<StillSticker>(file, normalizedImage(image));
  });
}

void StickerEffect::setPlace(const StickerPlace& place) {
  const bool isUsable = std::isfinite(place.rectangle.origin.x) && std::isfinite(place.rectangle.origin.y) &&
                        place.rectangle.size.width > 0 && place.rectangle.size.height > 0 &&
                        std::isfinite(place.rectangle.size.width + place.rectangle.size.height + place.radians);
  if (!isUsable) return;
  place_ = place;
  showAt(place);
}

}  // namespace tavrel::studio
