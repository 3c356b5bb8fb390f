#pragma once

#include <functional>
#include <memory>
#include <vector>

#include "GPUImage/TavrelGPUImageFramebuffer.h"
#include "GPUImage/TavrelGPUImageInput.h"
#include "GPUImage/TavrelGPUTextureOptions.h"
#include "Platform/Foundation/Export.h"
#include "Platform/Foundation/Geometry.h"
#include "Platform/Imaging/Image.h"
#include "Platform/Media/MediaTime.h"

namespace tavrel {

class TavrelGPUImageAudioTarget;

/// A producer of frames: a source or a filter. It keeps its targets in order, each with the slot at which that target
/// takes this producer's frames, and the framebuffer of its latest output.
///
/// Targets are held strongly until they are removed or the producer is destroyed. The graph is edited from any thread;
/// the edit itself runs synchronously on the video-processing queue, between two frames. Nodes are made by
/// `std::make_shared`.
class TAVREL_API TavrelGPUImageOutput : public std::enable_shared_from_this<TavrelGPUImageOutput> {
 public:
  /// Called on the video-processing queue.
  using FrameProcessingCompletionBlock = std::function<void(TavrelGPUImageOutput& output, MediaTime frameTime)>;

  TavrelGPUImageOutput();
  TavrelGPUImageOutput(const TavrelGPUImageOutput&) = delete;
  TavrelGPUImageOutput& operator=(const TavrelGPUImageOutput&) = delete;
  /// Removes all targets.
  virtual ~TavrelGPUImageOutput();

  std::vector<std::shared_ptr<TavrelGPUImageInput>> targets() const { return targets_; }
  /// Adds a consumer at its next free slot. A consumer that is a target already stays as it is.
  void addTarget(const std::shared_ptr<TavrelGPUImageInput>& newTarget);
  /// The same at a given slot. The consumer receives the current output framebuffer at once.
  virtual void addTarget(const std::shared_ptr<TavrelGPUImageInput>& newTarget, Index atTextureLocation);
  /// The consumer is told zero size, no rotation and `endProcessing`. One that is no target receives nothing.
  void removeTarget(const std::shared_ptr<TavrelGPUImageInput>& targetToRemove);
  /// Every consumer is told zero size and no rotation, but not `endProcessing`.
  virtual void removeAllTargets();

  virtual const std::shared_ptr<TavrelGPUImageFramebuffer>& framebufferForOutput() const { return outputFramebuffer; }
  /// Drops the output without unlocking it.
  virtual void removeOutputFramebuffer() { outputFramebuffer.reset(); }
  void setInputFramebufferForTarget(const std::shared_ptr<TavrelGPUImageInput>& target, Index inputTextureIndex);
  /// Hands the output to every target.
  void notifyTargetsAboutNewOutputTexture();
  /// Tells a consumer that its frame is ready, and measures its work: see `TavrelTracing`. Whoever feeds a node by hand
  /// does it this way, too. On the video-processing queue.
  static void sendFrame(TavrelGPUImageInput& target, MediaTime frameTime, Index atIndex);

  virtual void forceProcessingAtSize(Size) {}
  virtual void forceProcessingAtSizeRespectingAspectRatio(Size) {}
  /// Keeps the next frame for `imageFromCurrentFramebuffer`.
  virtual void useNextFrameForImageCapture() {}
  /// The kept frame, or none. The base class has none.
  virtual std::shared_ptr<Image> newCGImageFromCurrentlyProcessedOutput() { return nullptr; }
  virtual bool providesMonochromeOutput() const { return false; }

  /// The kept frame, marked with the orientation in which the device is held now.
  std::shared_ptr<Image> imageFromCurrentFramebuffer();
  std::shared_ptr<Image> imageFromCurrentFramebufferWithOrientation(ImageOrientation imageOrientation);
  /// `image` after this node. Not on the video-processing queue. The last form keeps the image's scale and orientation.
  std::shared_ptr<Image> newCGImageByFilteringCGImage(const std::shared_ptr<Image>& image);
  std::shared_ptr<Image> newCGImageByFilteringImage(const std::shared_ptr<Image>& image);
  std::shared_ptr<Image> imageByFilteringImage(const std::shared_ptr<Image>& image);

  bool shouldSmoothlyScaleOutput() const { return shouldSmoothlyScaleOutput_; }
  void setShouldSmoothlyScaleOutput(bool newValue) { shouldSmoothlyScaleOutput_ = newValue; }
  virtual bool shouldIgnoreUpdatesToThisTarget() const { return shouldIgnoreUpdatesToThisTarget_; }
  void setShouldIgnoreUpdatesToThisTarget(bool newValue) { shouldIgnoreUpdatesToThisTarget_ = newValue; }
  /// The consumer that per-frame updates skip; not owned.
  std::shared_ptr<TavrelGPUImageInput> targetToIgnoreForUpdates() const { return targetToIgnoreForUpdates_.lock(); }
  void setTargetToIgnoreForUpdates(const std::shared_ptr<TavrelGPUImageInput>& target) {
    targetToIgnoreForUpdates_ = target;
  }
  const std::shared_ptr<TavrelGPUImageAudioTarget>& audioEncodingTarget() const { return audioEncodingTarget_; }
  /// Also gives the target an audio track, when it has none.
  virtual void setAudioEncodingTarget(std::shared_ptr<TavrelGPUImageAudioTarget> newValue);
  const FrameProcessingCompletionBlock& frameProcessingCompletionBlock() const {
    return frameProcessingCompletionBlock_;
  }
  void setFrameProcessingCompletionBlock(FrameProcessingCompletionBlock block) {
    frameProcessingCompletionBlock_ = std::move(block);
  }
  virtual bool enabled() const { return enabled_; }
  void setEnabled(bool newValue) { enabled_ = newValue; }
  const TavrelGPUTextureOptions& outputTextureOptions() const { return outputTextureOptions_; }
  /// The wrap modes also apply to the current output.
  void setOutputTextureOptions(const TavrelGPUTextureOptions& newValue);
  /// True while every target wants monochrome frames.
  bool allTargetsWantMonochromeData() const { return allTargetsWantMonochromeData_; }

 protected:
  /// Calls `action(target, slot)` for each target in order, except the one to ignore for updates.
  template <typename Action>
  void forEachUpdatedTarget(Action action) const {
    const std::shared_ptr<TavrelGPUImageInput> ignored = targetToIgnoreForUpdates();
    for (std::size_t i = 0; i < targets_.size(); ++i) {
      if (targets_[i] != ignored) action(targets_[i], targetTextureIndices_[i]);
    }
  }

  std::shared_ptr<TavrelGPUImageFramebuffer> outputFramebuffer;
  std::vector<std::shared_ptr<TavrelGPUImageInput>> targets_;
  std::vector<Index> targetTextureIndices_;
  Size inputTextureSize;
  Size cachedMaximumOutputSize;
  Size forcedMaximumSize;
  bool overrideInputSize = false;
  bool usingNextFrameForImageCapture = false;

 private:
  bool isTarget(const std::shared_ptr<TavrelGPUImageInput>& target) const;

  bool allTargetsWantMonochromeData_ = true;
  bool shouldSmoothlyScaleOutput_ = false;
  bool shouldIgnoreUpdatesToThisTarget_ = false;
  bool enabled_ = true;
  std::weak_ptr<TavrelGPUImageInput> targetToIgnoreForUpdates_;
  std::shared_ptr<TavrelGPUImageAudioTarget> audioEncodingTarget_;
  FrameProcessingCompletionBlock frameProcessingCompletionBlock_;
  TavrelGPUTextureOptions outputTextureOptions_;
};

}  // namespace tavrel
