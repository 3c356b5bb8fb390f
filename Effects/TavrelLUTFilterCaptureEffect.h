#pragma once

#include "Effects/TavrelCaptureEffect.h"
#include "Platform/Imaging/Image.h"

namespace tavrel {

/// Recolours the frame through a table. Observable: "image".
class TAVREL_API TavrelLUTFilterCaptureEffect : public TavrelCaptureEffect {
 public:
  /// It takes over attachments and shares the image.
  std::shared_ptr<TavrelCaptureEffect> copy() const override {
    return std::make_shared<TavrelLUTFilterCaptureEffect>(*this);
  }
  /// A lookup filter, with a picture of the image; none without an image.
  TavrelCaptureEffectNodes makeNodes(Size frameSize) override;
  std::optional<Rect> inputFor(const Rect& output, Size) const override { return output; }

  /// 512 × 512 pixels in 8 × 8 tiles: blue grows from tile to tile, red to the right and green downwards in each.
  const std::shared_ptr<Image>& image() const { return image_; }
  void setImage(std::shared_ptr<Image> image) { changeProperty(image_, std::move(image), "image"); }

 private:
  std::shared_ptr<Image> image_;
};

}  // namespace tavrel
