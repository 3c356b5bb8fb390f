#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "GPUImage/TavrelGPUImageInput.h"
#include "GPUImage/TavrelGPUTextureOptions.h"
#include "Platform/Foundation/Export.h"
#include "Platform/Foundation/Geometry.h"
#include "Platform/Imaging/Image.h"
#include "Platform/Media/MediaTime.h"

namespace tavrel {

class TavrelGPUImageAudioTarget;
class TavrelGPUImageFramebuffer;

/// A producer of frames: a source or a filter. It keeps its connections in order, each a target with the slot at which
/// that target takes this producer's frames, and the framebuffer of its latest output.
///
/// Targets are held strongly until they are removed or the producer is destroyed. Any thread may call the public
/// members, also while frames run, unless one says otherwise: what a node knows is read and written on the
/// video-processing queue, between two frames, and the caller waits for that. What is protected is for code that runs
/// there. Nodes are made by `std::make_shared`.
class TAVREL_API TavrelGPUImageOutput : public std::enable_shared_from_this<TavrelGPUImageOutput> {
 public:
  /// Called on the video-processing queue.
  using FrameProcessingCompletionBlock = std::function<void(TavrelGPUImageOutput& output, MediaTime frameTime)>;

  TavrelGPUImageOutput();
  TavrelGPUImageOutput(const TavrelGPUImageOutput&) = delete;
  TavrelGPUImageOutput& operator=(const TavrelGPUImageOutput&) = delete;
  /// Removes all targets.
  virtual ~TavrelGPUImageOutput();

  std::vector<std::shared_ptr<TavrelGPUImageInput>> targets() const;
  /// Adds a consumer at its next free slot. A consumer that is a target already stays as it is.
  void addTarget(const std::shared_ptr<TavrelGPUImageInput>& newTarget);
  /// The same at a given slot. The consumer receives the current output framebuffer at once.
  virtual void addTarget(const std::shared_ptr<TavrelGPUImageInput>& newTarget, Index atTextureLocation);
  /// The consumer is told zero size, no rotation and `endProcessing`. One that is no target receives nothing.
  void removeTarget(const std::shared_ptr<TavrelGPUImageInput>& targetToRemove);
  /// Every consumer is told zero size and no rotation, but not `endProcessing`.
  virtual void removeAllTargets();

  virtual std::shared_ptr<TavrelGPUImageFramebuffer> framebufferForOutput() const;
  /// Drops the output without unlocking it.
  virtual void removeOutputFramebuffer();
  void setInputFramebufferForTarget(const std::shared_ptr<TavrelGPUImageInput>& target, Index inputTextureIndex);
  /// Gives every target the output, without saying that a frame is ready.
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

  bool shouldSmoothlyScaleOutput() const;
  void setShouldSmoothlyScaleOutput(bool newValue);
  virtual bool shouldIgnoreUpdatesToThisTarget() const;
  void setShouldIgnoreUpdatesToThisTarget(bool newValue);
  /// The consumer that per-frame updates skip; not owned.
  std::shared_ptr<TavrelGPUImageInput> targetToIgnoreForUpdates() const;
  void setTargetToIgnoreForUpdates(const std::shared_ptr<TavrelGPUImageInput>& target);
  std::shared_ptr<TavrelGPUImageAudioTarget> audioEncodingTarget() const;
  /// Also gives the target an audio track, when it has none.
  virtual void setAudioEncodingTarget(std::shared_ptr<TavrelGPUImageAudioTarget> newValue);
  /// Called after each frame that this producer has finished, before its targets see it.
  FrameProcessingCompletionBlock frameProcessingCompletionBlock() const;
  void setFrameProcessingCompletionBlock(FrameProcessingCompletionBlock block);
  virtual bool enabled() const;
  void setEnabled(bool newValue);
  TavrelGPUTextureOptions outputTextureOptions() const;
  /// The wrap modes also apply to the current output.
  void setOutputTextureOptions(const TavrelGPUTextureOptions& newValue);
  /// True while every target wants monochrome frames.
  bool allTargetsWantMonochromeData() const;

 protected:
  /// A frame on its way to the targets, and how they are told of it. As it stands it is a filter's: every target is
  /// given the framebuffer and then the size, the producer's own lock ends, every target draws.
  struct HandOver {
    /// What the target to ignore for updates is given.
    enum class ToIgnoredTarget { nothing, framebuffer, frame };

    MediaTime frameTime;
    /// The picture's, in pixels.
    Size size;
    /// How the targets are to turn the picture; they are told only where it is given.
    std::optional<TavrelGPUImageRotationMode> rotation = std::nullopt;
    /// Targets learn the size before the framebuffer.
    bool sizeFirst = false;
    /// Each target draws before the next one is told anything, and the producer keeps its framebuffer.
    bool oneByOne = false;
    /// Targets learn before all else that the picture is no monochrome one.
    bool saysColored = false;
    bool skipsDisabledTargets = false;
    ToIgnoredTarget toIgnoredTarget = ToIgnoredTarget::nothing;
  };

  /// Gives the output to the targets, in order, and tells them that it is ready. Targets that the graph loses or gains
  /// meanwhile count from the next frame on.
  void handOver(const HandOver& frame);
  /// Sets the framebuffer that `framebufferForOutput` returns, with the lock of its fetch.
  void setOutputFramebuffer(std::shared_ptr<TavrelGPUImageFramebuffer> framebuffer);
  /// Whether a kept frame still needs the output when the targets have it.
  virtual bool keepsOutput() const { return false; }

  /// The size that this producer works at, in pixels.
  Size inputTextureSize() const;
  void setInputTextureSize(Size newValue);
  /// The size forced on this producer; it counts while `overrideInputSize`.
  Size forcedMaximumSize() const;
  bool overrideInputSize() const;
  void setForcedMaximumSize(Size newValue, bool overridesInputSize);

 private:
  struct Implementation;
  const std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavrel
