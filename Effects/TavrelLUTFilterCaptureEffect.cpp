#include "Effects/TavrelLUTFilterCaptureEffect.h"

#include <utility>

#include "GPUImage/Filters/TavrelGPUImageColorTableFilter.h"
#include "GPUImage/Filters/TavrelGPUImageLookupFilter.h"
#include "GPUImage/Sources/TavrelGPUImagePicture.h"

namespace tavrel {

TavrelCaptureEffectNodes TavrelLUTFilterCaptureEffect::makeNodes(Size) {
  if (table_ && TavrelGPUImageColorTableFilter::isSupported())
    return {.filters = {std::make_shared<TavrelGPUImageColorTableFilter>(table_)}, .pictures = {}};
  if (!image_) return {};
  const auto lookup =
      std::make_shared<TavrelGPUImageLookupFilter>(kTavrelGPUImagePremultipliedLookupFragmentShaderString);
  const auto picture = std::make_shared<TavrelGPUImagePicture>(image_, false, true);
  picture->addTarget(lookup, 1);
  return {.filters = {lookup}, .pictures = {picture}};
}

}  // namespace tavrel
