#include "Effects/TavrelLUTFilterCaptureEffect.h"

#include <utility>

#include "GPUImage/Filters/TavrelGPUImageColorTableFilter.h"
#include "GPUImage/Filters/TavrelGPUImageLookupFilter.h"
#include "GPUImage/Sources/TavrelGPUImagePicture.h"

namespace tavrel {

struct TavrelLUTFilterCaptureEffect::Implementation {
  std::shared_ptr<Image> image;
  std::shared_ptr<const ColorTable> table;
};

TavrelLUTFilterCaptureEffect::TavrelLUTFilterCaptureEffect() : implementation_(std::make_unique<Implementation>()) {}

TavrelLUTFilterCaptureEffect::TavrelLUTFilterCaptureEffect(const TavrelLUTFilterCaptureEffect& source)
    : TavrelCaptureEffect(source), implementation_(std::make_unique<Implementation>(*source.implementation_)) {}

TavrelLUTFilterCaptureEffect::~TavrelLUTFilterCaptureEffect() = default;

std::shared_ptr<TavrelCaptureEffect> TavrelLUTFilterCaptureEffect::copy() const {
  return std::make_shared<TavrelLUTFilterCaptureEffect>(*this);
}

const std::shared_ptr<Image>& TavrelLUTFilterCaptureEffect::image() const { return implementation_->image; }

void TavrelLUTFilterCaptureEffect::setImage(std::shared_ptr<Image> image) {
  changeProperty(implementation_->image, std::move(image), "image");
}

const std::shared_ptr<const ColorTable>& TavrelLUTFilterCaptureEffect::table() const { return implementation_->table; }

void TavrelLUTFilterCaptureEffect::setTable(std::shared_ptr<const ColorTable> table) {
  changeProperty(implementation_->table, std::move(table), "table");
}

TavrelCaptureEffectNodes TavrelLUTFilterCaptureEffect::makeNodes(Size) {
  if (table() && TavrelGPUImageColorTableFilter::isSupported())
    return {.filters = {std::make_shared<TavrelGPUImageColorTableFilter>(table())}, .pictures = {}};
  if (!image()) return {};
  const auto lookup =
      std::make_shared<TavrelGPUImageLookupFilter>(kTavrelGPUImagePremultipliedLookupFragmentShaderString);
  const auto picture = std::make_shared<TavrelGPUImagePicture>(image(), false, true);
  picture->addTarget(lookup, 1);
  return {.filters = {lookup}, .pictures = {picture}};
}

}  // namespace tavrel
