#pragma once

#include "Effects/TavrelCaptureEffect.h"
#include "Effects/TavrelObject.h"
#include "Platform/Foundation/Geometry.h"
#include "Platform/Imaging/Image.h"

namespace tavrel {

/// Lays a still picture over the frame by its alpha. Observable: "image", "destRect" and "rotation".
class TAVREL_API TavrelImageStickerCaptureEffect : public TavrelObject, public TavrelCaptureEffect {
 public:
  TavrelImageStickerCaptureEffect() = default;
  /// A copy takes over attachments, rectangle and rotation, and shares the image.
  TavrelImageStickerCaptureEffect(const TavrelImageStickerCaptureEffect& source) = default;

  std::shared_ptr<TavrelCaptureEffect> copy() const override;
  /// An alpha blend filter, into which a placed picture of the image leads; none without an image.
  TavrelCaptureEffectNodes makeNodes(Size frameSize) override;

  const std::shared_ptr<Image>& image() const { return image_; }
  void setImage(std::shared_ptr<Image> image);
  /// Where the sticker lies, in pixels of the video; all zero: the image's own size, at the top left.
  const Rect& destRect() const { return destRect_; }
  void setDestRect(const Rect& destRect);
  /// In radians, about the rectangle's centre.
  double rotation() const { return rotation_; }
  void setRotation(double rotation);

 private:
  std::shared_ptr<Image> image_;
  Rect destRect_;
  double rotation_ = 0;
};

}  // namespace tavrel
