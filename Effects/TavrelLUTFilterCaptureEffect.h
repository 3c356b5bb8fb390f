#pragma once

#include "Effects/TavrelCaptureEffect.h"
#include "GPUImage/Filters/TavrelLookupTable.h"
#include "Platform/Imaging/Image.h"

namespace tavrel {

/// Recolours the frame by a lookup table. Observable: "image", "table".
class TAVREL_API TavrelLUTFilterCaptureEffect : public TavrelCaptureEffect {
 public:
  /// Copies the attachments and shares the image.
  std::shared_ptr<TavrelCaptureEffect> copy() const override {
    return std::make_shared<TavrelLUTFilterCaptureEffect>(*this);
  }
  /// A lookup filter and its table's picture, or a colour table filter; none without an image and a table.
  TavrelCaptureEffectNodes makeNodes(Size frameSize) override;
  std::optional<Rect> inputFor(const Rect& output, Size) const override { return output; }

  /// The table; see `TavrelGPUImageLookupFilter`.
  const std::shared_ptr<Image>& image() const { return image_; }
  void setImage(std::shared_ptr<Image> image) { changeProperty(image_, std::move(image), "image"); }
  /// Used instead of the image where the driver can, with the table's own resolution.
  const std::shared_ptr<const ColorTable>& table() const { return table_; }
  void setTable(std::shared_ptr<const ColorTable> table) { changeProperty(table_, std::move(table), "table"); }

 private:
  std::shared_ptr<Image> image_;
  std::shared_ptr<const ColorTable> table_;
};

}  // namespace tavrel
