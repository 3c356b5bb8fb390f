#include "GPUImage/TavrelGPUImageOutput.h"

#include <algorithm>
#include <utility>

#include "GPUImage/Private/FramebufferContents.h"
#include "GPUImage/Private/NodeSpan.h"
#include "GPUImage/Private/Properties.h"
#include "GPUImage/Private/Rehearsal.h"
#include "GPUImage/TavrelGPUImageAudioTarget.h"
#include "GPUImage/TavrelGPUImageContext.h"
#include "GPUImage/TavrelGPUImageFramebuffer.h"
#include "Platform/UI/Application.h"

namespace tavrel {
namespace {

ImageOrientation imageOrientationFor(DeviceOrientation orientation) {
  switch (orientation) {
    case DeviceOrientation::portraitUpsideDown: return ImageOrientation::down;
    case DeviceOrientation::landscapeLeft: return ImageOrientation::left;
    case DeviceOrientation::landscapeRight: return ImageOrientation::right;
    default: return ImageOrientation::up;
  }
}

}  // namespace

struct TavrelGPUImageOutput::Implementation {
  /// What belongs to it ends with it: the slot, and the rotation, which its target keeps by the slot.
  struct Connection {
    std::shared_ptr<TavrelGPUImageInput> target;
    Index slot;

    void end() const {
      target->setInputSize({}, slot);
      target->setInputRotation(kTavrelGPUImageNoRotation, slot);
    }
  };

  auto find(const std::shared_ptr<TavrelGPUImageInput>& target) {
    return std::find_if(connections.begin(), connections.end(),
                        [&](const Connection& connection) { return connection.target == target; });
  }

  std::shared_ptr<TavrelGPUImageFramebuffer> outputFramebuffer;
  std::vector<Connection> connections;
  Size inputTextureSize;
  Size cachedMaximumOutputSize;
  Size forcedMaximumSize;
  bool overrideInputSize = false;
  bool allTargetsWantMonochromeData = true;
  bool shouldSmoothlyScaleOutput = false;
  bool shouldIgnoreUpdatesToThisTarget = false;
  bool enabled = true;
  std::weak_ptr<TavrelGPUImageInput> targetToIgnoreForUpdates;
  std::shared_ptr<TavrelGPUImageAudioTarget> audioEncodingTarget;
  FrameProcessingCompletionBlock frameProcessingCompletionBlock;
  TavrelGPUTextureOptions outputTextureOptions;
};

TavrelGPUImageOutput::TavrelGPUImageOutput() : implementation_(std::make_unique<Implementation>()) {}

TavrelGPUImageOutput::~TavrelGPUImageOutput() {
  if (!implementation_->connections.empty()) TavrelGPUImageOutput::removeAllTargets();
}

std::vector<std::shared_ptr<TavrelGPUImageInput>> TavrelGPUImageOutput::targets() const {
  return onVideoProcessingQueue([this] {
    std::vector<std::shared_ptr<TavrelGPUImageInput>> targets;
    for (const auto& connection : implementation_->connections) targets.push_back(connection.target);
    return targets;
  });
}

void TavrelGPUImageOutput::addTarget(const std::shared_ptr<TavrelGPUImageInput>& newTarget) {
  onVideoProcessingQueue([&] {
    addTarget(newTarget, newTarget->nextAvailableTextureIndex());
    if (newTarget->shouldIgnoreUpdatesToThisTarget()) implementation_->targetToIgnoreForUpdates = newTarget;
  });
}

void TavrelGPUImageOutput::addTarget(const std::shared_ptr<TavrelGPUImageInput>& newTarget, Index atTextureLocation) {
  onVideoProcessingQueue([&] {
    Implementation& node = *implementation_;
    if (node.find(newTarget) != node.connections.end()) return;
    node.cachedMaximumOutputSize = {};
    setInputFramebufferForTarget(newTarget, atTextureLocation);
    node.connections.push_back({newTarget, atTextureLocation});
    node.allTargetsWantMonochromeData = node.allTargetsWantMonochromeData && newTarget->wantsMonochromeInput();
  });
}

void TavrelGPUImageOutput::removeTarget(const std::shared_ptr<TavrelGPUImageInput>& targetToRemove) {
  onVideoProcessingQueue([&] {
    Implementation& node = *implementation_;
    const auto position = node.find(targetToRemove);
    if (position == node.connections.end()) return;
    if (node.targetToIgnoreForUpdates.lock() == targetToRemove) node.targetToIgnoreForUpdates.reset();
    const Implementation::Connection connection = std::move(*position);
    node.connections.erase(position);
    connection.end();
    connection.target->endProcessing();
  });
}

void TavrelGPUImageOutput::removeAllTargets() {
  onVideoProcessingQueue([this] {
    implementation_->allTargetsWantMonochromeData = true;
    for (const auto& connection : std::exchange(implementation_->connections, {})) connection.end();
  });
}

std::shared_ptr<TavrelGPUImageFramebuffer> TavrelGPUImageOutput::framebufferForOutput() const {
  return onVideoProcessingQueue([this] { return implementation_->outputFramebuffer; });
}

void TavrelGPUImageOutput::setOutputFramebuffer(std::shared_ptr<TavrelGPUImageFramebuffer> framebuffer) {
  onVideoProcessingQueue([&] { implementation_->outputFramebuffer = std::move(framebuffer); });
}

void TavrelGPUImageOutput::removeOutputFramebuffer() { TavrelGPUImageOutput::setOutputFramebuffer(nullptr); }

void TavrelGPUImageOutput::setInputFramebufferForTarget(const std::shared_ptr<TavrelGPUImageInput>& target,
                                                        Index inputTextureIndex) {
  onVideoProcessingQueue([&] {
    const std::shared_ptr<TavrelGPUImageFramebuffer> framebuffer = framebufferForOutput();
    target->setInputFramebuffer(framebuffer, inputTextureIndex);
    if (framebuffer) FramebufferContents::drawUnlessAccepted(*framebuffer);
  });
}

void TavrelGPUImageOutput::notifyTargetsAboutNewOutputTexture() {
  onVideoProcessingQueue([this] {
    for (const auto& [target, slot] : implementation_->connections) setInputFramebufferForTarget(target, slot);
  });
}

void TavrelGPUImageOutput::handOver(const HandOver& frame) {
  using ToIgnoredTarget = HandOver::ToIgnoredTarget;
  // A copy, since a target may edit the list.
  std::vector<Implementation::Connection> connections = implementation_->connections;
  const Rehearsal* const rehearsal = Rehearsal::current();
  if (auto target = rehearsal ? rehearsal->targetOf(*this) : nullptr) {
    connections.assign(1, {std::move(target), 0});
  }
  const std::shared_ptr<TavrelGPUImageInput> ignored = targetToIgnoreForUpdates();
  std::erase_if(connections, [&](const auto& connection) {
    return (frame.skipsDisabledTargets && !connection.target->enabled()) ||
           (frame.toIgnoredTarget == ToIgnoredTarget::nothing && connection.target == ignored);
  });

  const auto isForFramebufferOnly = [&](const auto& target) {
    return frame.toIgnoredTarget == ToIgnoredTarget::framebuffer && target == ignored;
  };
  const auto give = [&](const auto& target, Index slot) {
    if (isForFramebufferOnly(target)) return setInputFramebufferForTarget(target, slot);
    if (frame.saysColored) target->setCurrentlyReceivingMonochromeInput(false);
    if (frame.rotation) target->setInputRotation(*frame.rotation, slot);
    if (frame.sizeFirst) target->setInputSize(frame.size, slot);
    setInputFramebufferForTarget(target, slot);
    if (!frame.sizeFirst) target->setInputSize(frame.size, slot);
  };
  const auto send = [&](const auto& target, Index slot) {
    if (!isForFramebufferOnly(target)) sendFrame(*target, frame.frameTime, slot);
  };

  // A frame for several targets is drawn once for all of them.
  const auto output = framebufferForOutput();
  if (output && connections.size() != 1) FramebufferContents::draw(*output);
  for (const auto& [target, slot] : connections) {
    give(target, slot);
    if (frame.oneByOne) send(target, slot);
  }
  if (frame.oneByOne) return;
  if (const auto framebuffer = framebufferForOutput()) framebuffer->unlock();
  if (!keepsOutput()) removeOutputFramebuffer();
  for (const auto& [target, slot] : connections) send(target, slot);
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

TAVREL_NODE_PROPERTY(TavrelGPUImageOutput, bool, shouldSmoothlyScaleOutput, setShouldSmoothlyScaleOutput)
TAVREL_NODE_PROPERTY(TavrelGPUImageOutput, bool, shouldIgnoreUpdatesToThisTarget, setShouldIgnoreUpdatesToThisTarget)
TAVREL_NODE_PROPERTY(TavrelGPUImageOutput, bool, enabled, setEnabled)

std::shared_ptr<TavrelGPUImageInput> TavrelGPUImageOutput::targetToIgnoreForUpdates() const {
  return onVideoProcessingQueue([this] { return implementation_->targetToIgnoreForUpdates.lock(); });
}

void TavrelGPUImageOutput::setTargetToIgnoreForUpdates(const std::shared_ptr<TavrelGPUImageInput>& target) {
  onVideoProcessingQueue([&] { implementation_->targetToIgnoreForUpdates = target; });
}

TAVREL_NODE_VALUE(TavrelGPUImageOutput, std::shared_ptr<TavrelGPUImageAudioTarget>, audioEncodingTarget)

void TavrelGPUImageOutput::setAudioEncodingTarget(std::shared_ptr<TavrelGPUImageAudioTarget> newValue) {
  onVideoProcessingQueue([&] { implementation_->audioEncodingTarget = newValue; });
  if (newValue && !newValue->hasAudioTrack()) newValue->setHasAudioTrack(true);
}

TAVREL_NODE_VALUE(TavrelGPUImageOutput, TavrelGPUImageOutput::FrameProcessingCompletionBlock,
                  frameProcessingCompletionBlock)

void TavrelGPUImageOutput::setFrameProcessingCompletionBlock(FrameProcessingCompletionBlock block) {
  // What the earlier block holds goes outside of the queue.
  onVideoProcessingQueue([&] { implementation_->frameProcessingCompletionBlock.swap(block); });
}

TAVREL_NODE_VALUE(TavrelGPUImageOutput, TavrelGPUTextureOptions, outputTextureOptions)

void TavrelGPUImageOutput::setOutputTextureOptions(const TavrelGPUTextureOptions& newValue) {
  onVideoProcessingQueue([&] {
    implementation_->outputTextureOptions = newValue;
    const auto& framebuffer = implementation_->outputFramebuffer;
    if (!framebuffer || framebuffer->texture() == 0) return;
    TavrelGPUImageContext::useImageProcessingContext();
    glBindTexture(GL_TEXTURE_2D, framebuffer->texture());
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_S, static_cast<GLint>(newValue.wrapS));
    glTexParameteri(GL_TEXTURE_2D, GL_TEXTURE_WRAP_T, static_cast<GLint>(newValue.wrapT));
    glBindTexture(GL_TEXTURE_2D, 0);
  });
}

TAVREL_NODE_VALUE(TavrelGPUImageOutput, bool, allTargetsWantMonochromeData)
TAVREL_NODE_PROPERTY(TavrelGPUImageOutput, Size, inputTextureSize, setInputTextureSize)
TAVREL_NODE_VALUE(TavrelGPUImageOutput, Size, forcedMaximumSize)
TAVREL_NODE_VALUE(TavrelGPUImageOutput, bool, overrideInputSize)

void TavrelGPUImageOutput::setForcedMaximumSize(Size newValue, bool overridesInputSize) {
  onVideoProcessingQueue([&] {
    implementation_->forcedMaximumSize = newValue;
    implementation_->overrideInputSize = overridesInputSize;
  });
}

}  // namespace tavrel
