#pragma once

#include <memory>
#include <vector>

#include "Capture/Video/Private/CameraDelivery.h"
#include "Capture/Video/Private/CameraZoomFilter.h"
#include "Effects/TavrelCaptureEffectNodes.h"
#include "GPUImage/Destinations/TavrelGPUImageView.h"
#include "GPUImage/Filters/TavrelGPUImageCropFilter.h"
#include "GPUImage/Filters/TavrelGPUImageTransformFilter.h"
#include "GPUImage/Sources/TavrelGPUImageCVPixelBufferInput.h"
#include "GPUImage/Sources/TavrelGPUImagePicture.h"

namespace tavrel {

/// The nodes through which a camera's frames pass:
///
///     pixelBufferInput ▶ (zoomFilter) ▶ cropFilter ▶ filters ▶ (blur) ┬▶ (mirroredFilter) ▶ preview view
///                                                                     └▶ (mirroredFilter) ▶ delivery
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
    double zoom = 1;  ///< that the device leaves to the chain
  };

  CameraChain(std::shared_ptr<TavrelGPUImageView> view, CameraDelivery::Handler delivery);
  CameraChain(const CameraChain&) = delete;
  CameraChain& operator=(const CameraChain&) = delete;
  ~CameraChain();

  /// Whether all programs are made with which these nodes, which are not in use, will draw frames of `originalSize`.
  static bool isPrepared(const TavrelCaptureEffectNodes& nodes, const Form& form, Size originalSize);
  /// Makes them, while other frames pass. Takes as long as the driver's compiler. Not on the video-processing queue.
  static void prepare(const TavrelCaptureEffectNodes& nodes, const Form& form, Size originalSize);
  /// Takes these nodes for the effects from the next building on; returns those that are out of use.
  TavrelCaptureEffectNodes exchangeNodes(TavrelCaptureEffectNodes nodes);
  /// Whether the chain must be built anew for frames to be enlarged so; if not, they are from now on.
  bool setZoom(double zoom);
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
  std::shared_ptr<CameraZoomFilter> zoomFilter_;  // while it enlarges
  double zoom_ = 1;
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
