#pragma once

#include "Effects/TavrelCaptureEffect.h"
#include "Platform/Foundation/Geometry.h"
#include "Platform/Foundation/Pimpl.h"
#include "Platform/Imaging/Image.h"

namespace tavrel {

/// Blends a still image over the frame. Observable: "image", "destRect" and "rotation".
class TAVREL_API TavrelImageStickerCaptureEffect : public TavrelCaptureEffect {
 public:
  TavrelImageStickerCaptureEffect();
  /// Copies the attachments, rectangle and rotation, and shares the image.
  TavrelImageStickerCaptureEffect(const TavrelImageStickerCaptureEffect& source);
  ~TavrelImageStickerCaptureEffect() override;

  std::shared_ptr<TavrelCaptureEffect> copy() const override;
  /// An alpha blend filter and its picture; none without an image.
  TavrelCaptureEffectNodes makeNodes(Size frameSize) override;
  std::optional<Rect> inputFor(const Rect& output, Size) const override { return output; }
  TavrelCaptureEffectPart onPart(const Rect& input, Size frameSize) const override;

  const std::shared_ptr<Image>& image() const;
  void setImage(std::shared_ptr<Image> image);
  /// The sticker's rectangle, in pixels of the video; all zero for the image's own size at the top left.
  const Rect& destRect() const;
  void setDestRect(const Rect& destRect);
  /// In radians, about the rectangle's centre.
  double rotation() const;
  void setRotation(double rotation);

 private:
  struct Implementation;
  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
