#include "GPUImage/TavrelGPUImageOutput.h"

#include <algorithm>
#include <utility>

#include "GPUImage/Private/NodeSpan.h"
#include "GPUImage/TavrelGPUImageAudioTarget.h"
#include "GPUImage/TavrelGPUImageContext.h"
#include "Platform/UI/Application.h"

namespace tavrel {
namespace {

ImageOrientation imageOrientationFor(DeviceOrientation orientation) {
  switch (orientation) {
    case DeviceOrientation::portraitUpsideDown:
      return ImageOrientation::down;
    case DeviceOrientation::landscapeLeft:
      return ImageOrientation::left;
    case DeviceOrientation::landscapeRight:
      return ImageOrientation::right;
    default:
      return ImageOrientation::up;
  }
}

}  // namespace

TavrelGPUImageOutput::TavrelGPUImageOutput() = default;

TavrelGPUImageOutput::~TavrelGPUImageOutput() {
  if (!targets_.empty()) TavrelGPUImageOutput::removeAllTargets();
}

bool TavrelGPUImageOutput::isTarget(const std::shared_ptr<TavrelGPUImageInput>& target) const {
  return std::find(targets_.begin(), targets_.end(), target) != targets_.end();
}

void TavrelGPUImageOutput::addTarget(const std::shared_ptr<TavrelGPUImageInput>& newTarget) {
  addTarget(newTarget, newTarget->nextAvailableTextureIndex());
  if (newTarget->shouldIgnoreUpdatesToThisTarget()) targetToIgnoreForUpdates_ = newTarget;
}

void TavrelGPUImageOutput::addTarget(const std::shared_ptr<TavrelGPUImageInput>& newTarget, Index atTextureLocation) {
  if (isTarget(newTarget)) return;
  cachedMaximumOutputSize = {};
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
    setInputFramebufferForTarget(newTarget, atTextureLocation);
    targets_.push_back(newTarget);
    targetTextureIndices_.push_back(atTextureLocation);
    allTargetsWantMonochromeData_ = allTargetsWantMonochromeData_ && newTarget->wantsMonochromeInput();
  });
}

void TavrelGPUImageOutput::removeTarget(const std::shared_ptr<TavrelGPUImageInput>& targetToRemove) {
  if (!isTarget(targetToRemove)) return;
  if (targetToIgnoreForUpdates() == targetToRemove) targetToIgnoreForUpdates_.reset();
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
    const auto position = std::find(targets_.begin(), targets_.end(), targetToRemove);
    if (position == targets_.end()) return;  // removed by somebody else meanwhile
    const std::shared_ptr<TavrelGPUImageInput> target = *position;
    const auto slotPosition = targetTextureIndices_.begin() + (position - targets_.begin());
    const Index slot = *slotPosition;
    target->setInputSize({}, slot);
    target->setInputRotation(kTavrelGPUImageNoRotation, slot);
    targetTextureIndices_.erase(slotPosition);
    targets_.erase(position);
    target->endProcessing();
  });
}

void TavrelGPUImageOutput::removeAllTargets() {
  cachedMaximumOutputSize = {};
  TavrelRunSynchronouslyOnVideoProcessingQueue([this] {
    for (std::size_t i = 0; i < targets_.size(); ++i) {
      targets_[i]->setInputSize({}, targetTextureIndices_[i]);
      targets_[i]->setInputRotation(kTavrelGPUImageNoRotation, targetTextureIndices_[i]);
    }
    targets_.clear();
    targetTextureIndices_.clear();
    allTargetsWantMonochromeData_ = true;
  });
}

void TavrelGPUImageOutput::setInputFramebufferForTarget(const std::shared_ptr<TavrelGPUImageInput>& target,
                                                        Index inputTextureIndex) {
  target->setInputFramebuffer(framebufferForOutput(), inputTextureIndex);
}

void TavrelGPUImageOutput::notifyTargetsAboutNewOutputTexture() {
  for (std::size_t i = 0; i < targets_.size(); ++i) {
    setInputFramebufferForTarget(targets_[i], targetTextureIndices_[i]);
  }
}

void TavrelGPUImageOutput::sendFrame(TavrelGPUImageInput& target, MediaTime frameTime, Index atIndex) {
  const NodeSpan span(target);
  target.newFrameReadyAtTime(frameTime, atIndex);
}

std::shared_ptr<Image> TavrelGPUImageOutput::imageFromCurrentFramebuffer() {
  return imageFromCurrentFramebufferWithOrientation(imageOrientationFor(Application::shared().deviceOrientation()));
}

std::shared_ptr<Image> TavrelGPUImageOutput::imageFromCurrentFramebufferWithOrientation(
    ImageOrientation imageOrientation) {
  const std::shared_ptr<Image> image = newCGImageFromCurrentlyProcessedOutput();
  return image ? image->withScaleAndOrientation(1.0, imageOrientation) : nullptr;
}

void TavrelGPUImageOutput::setAudioEncodingTarget(std::shared_ptr<TavrelGPUImageAudioTarget> newValue) {
  audioEncodingTarget_ = std::move(newValue);
  if (audioEncodingTarget_ && !audioEncodingTarget_->hasAudioTrack()) audioEncodingTarget_->setHasAudioTrack(true);
}

void TavrelGPUImageOutput::setOutputTextureOptions(const TavrelGPUTextureOptions& newValue) {
  outputTextureOptions_ = newValue;
  if (!outputFramebuffer || outputFramebuffer->texture() == 0) return;
  TavrelRunSynchronouslyOnVideoProcessingQueue([this] {
    TavrelGPUImageContext::useImageProcessingContext();
    glBindTexture(GL_TEXTURE_2D, outputFramebuffer->texture());
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, static_cast<GLint>(outputTextureOptions_.wrapS));
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, static_cast<GLint>(outputTextureOptions_.wrapT));
    glBindTexture(GL_TEXTURE_2D, 0);
  });
}

}  // namespace tavrel
