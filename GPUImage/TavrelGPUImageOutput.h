#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <vector>

#include "GPUImage/TavrelGPUImageInput.h"
#include "GPUImage/TavrelGPUTextureOptions.h"
#include "Platform/Foundation/Export.h"
#include "Platform/Foundation/Geometry.h"
#include "Platform/Foundation/Pimpl.h"
#include "Platform/Imaging/Image.h"
#include "Platform/Media/MediaTime.h"

namespace tavrel {

class TavrelGPUImageAudioTarget;
class TavrelGPUImageFramebuffer;

/// A producer of frames: a source or a filter. Holds an ordered list of connections, each a target and its slot for
/// this producer's frames, and the framebuffer of the latest output.
///
/// Targets are owned until they are removed or the producer is destroyed. Public members may be called on any thread,
/// even while frames run, unless stated otherwise: they access the node's state on the video-processing queue, between
/// frames, and wait for that. Protected members must be called on that queue. Create nodes with `std::make_shared`.
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
  /// Adds a consumer at its next free slot. Has no effect if it is a target already.
  void addTarget(const std::shared_ptr<TavrelGPUImageInput>& newTarget);
  /// The same at a given slot. The consumer receives the current output framebuffer at once.
  virtual void addTarget(const std::shared_ptr<TavrelGPUImageInput>& newTarget, Index atTextureLocation);
  /// Removes a target: resets its size and rotation, and calls its `endProcessing`. Has no effect on a consumer that is
  /// not a target.
  void removeTarget(const std::shared_ptr<TavrelGPUImageInput>& targetToRemove);
  /// Removes all targets: resets their sizes and rotations, without `endProcessing`.
  virtual void removeAllTargets();

  virtual std::shared_ptr<TavrelGPUImageFramebuffer> framebufferForOutput() const;
  /// Releases the output without unlocking it.
  virtual void removeOutputFramebuffer();
  void setInputFramebufferForTarget(const std::shared_ptr<TavrelGPUImageInput>& target, Index inputTextureIndex);
  /// Passes the output to every target without announcing a frame.
  void notifyTargetsAboutNewOutputTexture();
  /// Announces a frame to a consumer and measures its work (see `TavrelTracing`). Use it to feed a node directly. On
  /// the video-processing queue.
  static void sendFrame(TavrelGPUImageInput& target, MediaTime frameTime, Index atIndex);

  virtual void forceProcessingAtSize(Size) {}
  virtual void forceProcessingAtSizeRespectingAspectRatio(Size) {}
  /// Keeps the next frame for `imageFromCurrentFramebuffer`.
  virtual void useNextFrameForImageCapture() {}
  /// The kept frame as an image. The base class returns nullptr.
  virtual std::shared_ptr<Image> newCGImageFromCurrentlyProcessedOutput() { return nullptr; }
  virtual bool providesMonochromeOutput() const { return false; }

  /// The kept frame, tagged with the device's present orientation.
  std::shared_ptr<Image> imageFromCurrentFramebuffer();
  std::shared_ptr<Image> imageFromCurrentFramebufferWithOrientation(ImageOrientation imageOrientation);
  /// `image` processed by this node; the last one keeps the image's scale and orientation. Do not call on the
  /// video-processing queue.
  std::shared_ptr<Image> newCGImageByFilteringCGImage(const std::shared_ptr<Image>& image);
  std::shared_ptr<Image> newCGImageByFilteringImage(const std::shared_ptr<Image>& image);
  std::shared_ptr<Image> imageByFilteringImage(const std::shared_ptr<Image>& image);

  bool shouldSmoothlyScaleOutput() const;
  void setShouldSmoothlyScaleOutput(bool newValue);
  virtual bool shouldIgnoreUpdatesToThisTarget() const;
  void setShouldIgnoreUpdatesToThisTarget(bool newValue);
  /// The target skipped by per-frame updates; not owned.
  std::shared_ptr<TavrelGPUImageInput> targetToIgnoreForUpdates() const;
  void setTargetToIgnoreForUpdates(const std::shared_ptr<TavrelGPUImageInput>& target);
  std::shared_ptr<TavrelGPUImageAudioTarget> audioEncodingTarget() const;
  /// Also gives the target an audio track if it has none.
  virtual void setAudioEncodingTarget(std::shared_ptr<TavrelGPUImageAudioTarget> newValue);
  /// Called after each finished frame, before the targets receive it.
  FrameProcessingCompletionBlock frameProcessingCompletionBlock() const;
  void setFrameProcessingCompletionBlock(FrameProcessingCompletionBlock block);
  virtual bool enabled() const;
  void setEnabled(bool newValue);
  TavrelGPUTextureOptions outputTextureOptions() const;
  /// The wrap modes also apply to the current output.
  void setOutputTextureOptions(const TavrelGPUTextureOptions& newValue);
  /// True if every target wants monochrome frames.
  bool allTargetsWantMonochromeData() const;

 protected:
  /// A frame for the targets, and how it is handed over. The defaults are a filter's: every target receives the
  /// framebuffer, then the size; the producer's own lock ends; every target draws.
  struct HandOver {
    /// What the ignored target (`targetToIgnoreForUpdates`) receives.
    enum class ToIgnoredTarget { nothing, framebuffer, frame };

    MediaTime frameTime;
    /// In pixels.
    Size size;
    /// The targets' input rotation; if absent it is not set.
    std::optional<TavrelGPUImageRotationMode> rotation = std::nullopt;
    /// Targets receive the size before the framebuffer.
    bool sizeFirst = false;
    /// Each target draws before the next one receives anything, and the producer keeps its framebuffer.
    bool oneByOne = false;
    /// Targets are first told that the frame is not monochrome.
    bool saysColored = false;
    bool skipsDisabledTargets = false;
    ToIgnoredTarget toIgnoredTarget = ToIgnoredTarget::nothing;
  };

  /// Passes the output to the targets, in order, and announces it. Targets added or removed meanwhile count from the
  /// next frame on.
  void handOver(const HandOver& frame);
  /// Sets the result of `framebufferForOutput`, together with the lock from its fetch.
  void setOutputFramebuffer(std::shared_ptr<TavrelGPUImageFramebuffer> framebuffer);
  /// Whether the output is still needed after the targets have received it.
  virtual bool keepsOutput() const { return false; }

  /// The producer's working size, in pixels.
  Size inputTextureSize() const;
  void setInputTextureSize(Size newValue);
  /// The forced size; effective while `overrideInputSize`.
  Size forcedMaximumSize() const;
  bool overrideInputSize() const;
  void setForcedMaximumSize(Size newValue, bool overridesInputSize);

 private:
  struct Implementation;
  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
