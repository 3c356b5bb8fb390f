#pragma once

#include <memory>
#include <vector>

#include "Capture/Video/Private/CameraDelivery.h"
#include "Effects/TavrelCaptureEffectNodes.h"
#include "GPUImage/Destinations/TavrelGPUImageView.h"
#include "GPUImage/Filters/TavrelGPUImageCropFilter.h"
#include "GPUImage/Filters/TavrelGPUImageTransformFilter.h"
#include "GPUImage/Sources/TavrelGPUImageCVPixelBufferInput.h"
#include "GPUImage/Sources/TavrelGPUImagePicture.h"

namespace tavrel {

/// The nodes through which a camera's frames pass:
///
///     pixelBufferInput ▶ cropFilter ▶ filters ▶ (blur) ┬▶ (mirroredFilter) ▶ preview view
///                                                      └▶ (mirroredFilter) ▶ delivery
///
/// What an application has set on filters of its own (completion block, rotation, forced size) stays as it is, however
/// often the chain is built anew. One thread at a time, and not the video-processing queue.
class CameraChain {
 public:
  struct Form {
    Size size;  ///< of what comes out
    bool isBlurred = false;
    bool mirrorsPreview = false;
    bool mirrorsEncoded = false;
  };

  CameraChain(std::shared_ptr<TavrelGPUImageView> view, CameraDelivery::Handler delivery);
  CameraChain(const CameraChain&) = delete;
  CameraChain& operator=(const CameraChain&) = delete;
  ~CameraChain();

  /// Has the programs made with which these nodes will draw frames of `originalSize`, before they are taken. While
  /// `areFramesComing` these do not wait for it.
  void prepare(const TavrelCaptureEffectNodes& nodes, const Form& form, Size originalSize, bool areFramesComing) const;
  /// Takes these nodes for the effects from the next building on; returns those that are out of use.
  TavrelCaptureEffectNodes exchangeNodes(TavrelCaptureEffectNodes nodes);
  /// Takes the chain apart and builds it anew, between two frames.
  void refreshGPUImagePipeline(const Form& form);
  /// Has the middle of frames of `originalSize` cut to the proportions of `size`, when they are of another size than
  /// the last ones.
  void refreshCropRegion(Size originalSize, Size size);
  /// Sends a frame through the chain, the effects' pictures first; see
  /// `TavrelGPUImageCVPixelBufferInput::processCVPixelBuffer`.
  bool process(const std::shared_ptr<PixelBuffer>& pixelBuffer, MediaTime frameTime, bool wait);

 private:
  void takeApart();

  const std::shared_ptr<TavrelGPUImageCVPixelBufferInput> pixelBufferInput;
  const std::shared_ptr<TavrelGPUImageCropFilter> cropFilter;
  const std::shared_ptr<TavrelGPUImageTransformFilter> mirroredFilter;
  const std::shared_ptr<TavrelGPUImageView> previewView;
  const std::shared_ptr<CameraDelivery> delivery_;
  std::vector<std::shared_ptr<TavrelGPUImageFilter>> filters;
  std::vector<std::shared_ptr<TavrelGPUImagePicture>> picturesNeedToBeProcessed;
  /// After the effects: the blur, and a copy that brings an application's own size to the camera's.
  std::vector<std::shared_ptr<TavrelGPUImageFilter>> ownFilters_;
  /// Work at the camera's size because they end a branch.
  std::vector<std::shared_ptr<TavrelGPUImageFilter>> forced_;
  Size previeousOriginalSize;
};

}  // namespace tavrel
