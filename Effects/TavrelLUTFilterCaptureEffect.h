#pragma once

#include "Effects/TavrelCaptureEffect.h"
#include "Platform/Imaging/Image.h"

namespace tavrel {

/// Recolours the frame by a lookup table. Observable: "image".
class TAVREL_API TavrelLUTFilterCaptureEffect : public TavrelCaptureEffect {
 public:
  /// Copies the attachments and shares the image.
  std::shared_ptr<TavrelCaptureEffect> copy() const override {
    return std::make_shared<TavrelLUTFilterCaptureEffect>(*this);
  }
  /// A lookup filter and its table's picture; none without an image.
  TavrelCaptureEffectNodes makeNodes(Size frameSize) override;
  std::optional<Rect> inputFor(const Rect& output, Size) const override { return output; }

  /// The table; see `TavrelGPUImageLookupFilter`.
  const std::shared_ptr<Image>& image() const { return image_; }
  void setImage(std::shared_ptr<Image> image) { changeProperty(image_, std::move(image), "image"); }

 private:
  std::shared_ptr<Image> image_;
};

}  // namespace tavrel
