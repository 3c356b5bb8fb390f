// The picture conveniences of the output node: they need the picture source, which is above it.
#include "GPUImage/Sources/TavrelGPUImagePicture.h"
#include "GPUImage/TavrelGPUImageOutput.h"

namespace tavrel {

std::shared_ptr<Image> TavrelGPUImageOutput::newCGImageByFilteringCGImage(const std::shared_ptr<Image>& image) {
  const auto picture = std::make_shared<TavrelGPUImagePicture>(image);
  const auto self = std::dynamic_pointer_cast<TavrelGPUImageInput>(shared_from_this());
  if (!self) return nullptr;  // a mere source has no input to filter
  useNextFrameForImageCapture();
  picture->addTarget(self);
  picture->processImage();
  std::shared_ptr<Image> processed = newCGImageFromCurrentlyProcessedOutput();
  picture->removeTarget(self);
  return processed;
}

std::shared_ptr<Image> TavrelGPUImageOutput::newCGImageByFilteringImage(const std::shared_ptr<Image>& image) {
  return newCGImageByFilteringCGImage(image);
}

std::shared_ptr<Image> TavrelGPUImageOutput::imageByFilteringImage(const std::shared_ptr<Image>& image) {
  const std::shared_ptr<Image> processed = newCGImageByFilteringCGImage(image);
  return processed ? processed->withScaleAndOrientation(image->scale(), image->orientation()) : nullptr;
}

}  // namespace tavrel
