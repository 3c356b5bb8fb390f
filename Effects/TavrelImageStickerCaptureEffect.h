#pragma once

#include "Effects/TavrelCaptureEffect.h"
#include "Platform/Foundation/Geometry.h"
#include "Platform/Imaging/Image.h"

namespace tavrel {

/// Blends a still image over the frame. Observable: "image", "destRect" and "rotation".
class TAVREL_API TavrelImageStickerCaptureEffect : public TavrelCaptureEffect {
 public:
  /// Copies the attachments, rectangle and rotation, and shares the image.
  std::shared_ptr<TavrelCaptureEffect> copy() const override {
    return std::make_shared<TavrelImageStickerCaptureEffect>(*this);
  }
  /// An alpha blend filter and its picture; none without an image.
  TavrelCaptureEffectNodes makeNodes(Size frameSize) override;
  std::optional<Rect> inputFor(const Rect& output, Size) const override { return output; }
  TavrelCaptureEffectPart onPart(const Rect& input, Size frameSize) const override;

  const std::shared_ptr<Image>& image() const { return image_; }
  void setImage(std::shared_ptr<Image> image) { changeProperty(image_, std::move(image), "image"); }
  /// The sticker's rectangle, in pixels of the video; all zero for the image's own size at the top left.
  const Rect& destRect() const { return destRect_; }
  void setDestRect(const Rect& destRect) { changeProperty(destRect_, destRect, "destRect"); }
  /// In radians, about the rectangle's centre.
  double rotation() const { return rotation_; }
  void setRotation(double rotation) { changeProperty(rotation_, rotation, "rotation"); }

 private:
  Rect place() const;

  std::shared_ptr<Image> image_;
  Rect destRect_;
  double rotation_ = 0;
};

}  // namespace tavrel
