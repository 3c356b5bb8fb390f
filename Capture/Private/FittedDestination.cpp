#include "Capture/Private/FittedDestination.h"

#include <cmath>
#include <utility>

#include "GPUImage/TavrelGPUImageFramebuffer.h"
#include "GPUImage/TavrelGPUImageOutput.h"

namespace tavrel {
namespace {

bool haveSameProportions(Size first, Size second) {
  return std::abs(first.width * second.height - second.width * first.height) < 0.01 * first.width * second.height;
}

void hand(TavrelGPUImageInput& input, const std::shared_ptr<TavrelGPUImageFramebuffer>& framebuffer, MediaTime time) {
  input.setInputFramebuffer(framebuffer, 0);
  input.setInputSize(framebuffer->size(), 0);
  TavrelGPUImageOutput::sendFrame(input, time, 0);
}

}  // namespace

FittedDestination::FittedDestination(std::shared_ptr<TavrelGPUImageInput> destination, Size size)
    : destination_(std::move(destination)), size_(size) {
  crop_->addTarget(destination_);
}

void FittedDestination::deliver(const std::shared_ptr<TavrelGPUImageFramebuffer>& framebuffer, MediaTime time) {
  if (haveSameProportions(framebuffer->size(), size_)) return hand(*destination_, framebuffer, time);
  if (croppedSize_ != framebuffer->size()) {
    croppedSize_ = framebuffer->size();
    crop_->setCropRegion(TavrelGPUImageCropFilter::centredRegion(croppedSize_, size_));
  }
  hand(*crop_, framebuffer, time);
}

}  // namespace tavrel
