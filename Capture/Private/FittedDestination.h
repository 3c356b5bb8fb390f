#pragma once

#include <memory>

#include "GPUImage/Filters/TavrelGPUImageCropFilter.h"
#include "GPUImage/TavrelGPUImageInput.h"

namespace tavrel {

/// Hands frames to a destination of one size; those of other proportions, which some effects make, are cropped to its
/// own. Video-processing queue.
class FittedDestination {
 public:
  FittedDestination(std::shared_ptr<TavrelGPUImageInput> destination, Size size);

  void deliver(const std::shared_ptr<TavrelGPUImageFramebuffer>& framebuffer, MediaTime time);

 private:
  const std::shared_ptr<TavrelGPUImageInput> destination_;
  const Size size_;
  const std::shared_ptr<TavrelGPUImageCropFilter> crop_ = std::make_shared<TavrelGPUImageCropFilter>();
  Size croppedSize_;
};

}  // namespace tavrel
