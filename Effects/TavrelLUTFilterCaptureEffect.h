#pragma once

#include "Effects/TavrelCaptureEffect.h"
#include "GPUImage/Filters/TavrelLookupTable.h"
#include "Platform/Foundation/Pimpl.h"
#include "Platform/Imaging/Image.h"

namespace tavrel {

/// Recolours the frame by a lookup table. Observable: "image", "table".
class TAVREL_API TavrelLUTFilterCaptureEffect : public TavrelCaptureEffect {
 public:
  TavrelLUTFilterCaptureEffect();
  /// Copies the attachments and shares the image and the table.
  TavrelLUTFilterCaptureEffect(const TavrelLUTFilterCaptureEffect& source);
  ~TavrelLUTFilterCaptureEffect() override;

  std::shared_ptr<TavrelCaptureEffect> copy() const override;
  /// A lookup filter and its table's picture, or a colour table filter; none without an image and a table.
  TavrelCaptureEffectNodes makeNodes(Size frameSize) override;
  std::optional<Rect> inputFor(const Rect& output, Size) const override { return output; }

  /// The table; see `TavrelGPUImageLookupFilter`.
  const std::shared_ptr<Image>& image() const;
  void setImage(std::shared_ptr<Image> image);
  /// Used instead of the image where the driver can, with the table's own resolution.
  const std::shared_ptr<const ColorTable>& table() const;
  void setTable(std::shared_ptr<const ColorTable> table);

 private:
  struct Implementation;
  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
