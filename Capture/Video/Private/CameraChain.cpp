#include "Capture/Video/Private/CameraChain.h"

#include <algorithm>
#include <memory>
#include <utility>
#include <vector>

#include "Capture/Video/Private/CameraCropFilter.h"
#include "GPUImage/Filters/TavrelGPUImageSmoothBlurFilter.h"
#include "GPUImage/TavrelGPUImageContext.h"
#include "GPUImage/TavrelGPUImageFramebufferCache.h"
#include "GPUImage/TavrelGPUImageFramebufferLease.h"

namespace tavrel {
namespace {

/// As a Gaussian blur filter with a radius of 50 pixels shows it, within a step or two of 255: its kernel ends early.
std::shared_ptr<TavrelGPUImageSmoothBlurFilter> makeSwitchBlur() {
  auto blur = std::make_shared<TavrelGPUImageSmoothBlurFilter>();
  blur->setSigma(50);
  blur->setReach(60);
  return blur;
}

/// Drivers compile a program for good when they first draw with it, some of them anew for textures whose sides are
/// powers of two, and that takes longer than a frame. Done once for each size, before its frames come.
void compileSwitchBlur(Size wanted) {
  const Size size = TavrelGPUImageContext::sizeThatFitsWithinATextureForSize(wanted);
  if (size.width < 1 || size.height < 1) return;
  TavrelRunAsynchronouslyOnVideoProcessingQueue([size] {
    static auto& done = *new std::vector<Size>;
    if (std::ranges::find(done, size) != done.end()) return;
    done.push_back(size);
    const auto input = TavrelGPUImageFramebufferLease::adopt(
        TavrelGPUImageContext::sharedFramebufferCache()->fetchFramebufferForSize(size, {}, false));
    const auto blur = makeSwitchBlur();
    blur->setInputSize(size, 0);
    blur->setInputFramebuffer(input.get(), 0);
    blur->newFrameReadyAtTime(MediaTime::zero(), 0);
    glFinish();
  });
}

/// The middle of frames of `originalSize`, in the proportions of `size`.
Rect cropRegion(Size originalSize, Size size) {
  const float a = static_cast<float>(originalSize.width) / static_cast<float>(originalSize.height);
  const float b = static_cast<float>(size.width) / static_cast<float>(size.height);
  return a <= b ? Rect{{0, (1 - a / b) / 2}, {1, a / b}} : Rect{{(1 - b / a) / 2, 0}, {b / a, 1}};
}

bool areFramesKnown(const TavrelCaptureEffectNodes& nodes, Size originalSize) {
  return originalSize.width >= 1 && originalSize.height >= 1 && !nodes.filters.empty();
}

/// The nodes with the same in front and behind as they will have in the chain.
TavrelGPUImageFilter::Chain rehearsedChain(const TavrelCaptureEffectNodes& nodes, const CameraChain::Form& form,
                                           Size originalSize) {
  const auto crop = std::make_shared<CameraCropFilter>();
  crop->setCropRegion(cropRegion(originalSize, form.size));
  TavrelGPUImageFilter::Chain all = {crop};
  all.insert(all.end(), nodes.filters.begin(), nodes.filters.end());
  const auto end = std::make_shared<TavrelGPUImageTransformFilter>();
  if (form.mirrorsPreview && form.mirrorsEncoded) end->setAffineTransform(AffineTransform::makeScale(-1, 1));
  end->forceProcessingAtSize(form.size);
  all.push_back(end);
  return all;
}

void sendPictures(const TavrelCaptureEffectNodes& nodes) {
  for (const auto& picture : nodes.pictures) picture->processImage();
}

}  // namespace

CameraChain::CameraChain(std::shared_ptr<TavrelGPUImageView> view, CameraDelivery::Handler delivery)
    : pixelBufferInput(std::make_shared<TavrelGPUImageCVPixelBufferInput>()),
      cropFilter(std::make_shared<CameraCropFilter>()),
      mirroredFilter(std::make_shared<TavrelGPUImageTransformFilter>()),
      previewView(std::move(view)),
      delivery_(std::make_shared<CameraDelivery>(std::move(delivery))) {
  mirroredFilter->setAffineTransform(AffineTransform::makeScale(-1, 1));
}

// An application's filter may live on; it lets go of preview and delivery.
CameraChain::~CameraChain() { takeApart(); }

TavrelCaptureEffectNodes CameraChain::exchangeNodes(TavrelCaptureEffectNodes nodes) {
  takeApart();
  return {.filters = std::exchange(filters, std::move(nodes.filters)),
          .pictures = std::exchange(picturesNeedToBeProcessed, std::move(nodes.pictures))};
}

void CameraChain::takeApart() {
  TavrelRunSynchronouslyOnVideoProcessingQueue([this] {
    // A node that loses its producer loses its rotation, which an application has set here, and nobody else.
    std::vector<TavrelGPUImageRotationMode> rotations;
    for (const auto& filter : filters) rotations.push_back(filter->inputRotation());
    pixelBufferInput->removeAllTargets();
    if (zoomFilter_) zoomFilter_->removeAllTargets();
    cropFilter->removeAllTargets();
    for (const auto& filter : filters) filter->removeAllTargets();
    for (const auto& filter : ownFilters_) filter->removeAllTargets();
    mirroredFilter->removeAllTargets();
    for (std::size_t i = 0; i < filters.size(); ++i) filters[i]->setInputRotation(rotations[i], 0);
    ownFilters_.clear();
    for (const auto& filter : forced_) filter->forceProcessingAtSize({});
    forced_.clear();
  });
}

bool CameraChain::isPrepared(const TavrelCaptureEffectNodes& nodes, const Form& form, Size originalSize) {
  if (!areFramesKnown(nodes, originalSize)) return true;
  bool isReady = false;
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
    isReady = TavrelGPUImageFilter::isChainPrepared(rehearsedChain(nodes, form, originalSize), originalSize,
                                                    [&] { sendPictures(nodes); });
  });
  return isReady;
}

void CameraChain::prepare(const TavrelCaptureEffectNodes& nodes, const Form& form, Size originalSize) {
  if (!areFramesKnown(nodes, originalSize)) return;
  constexpr bool kAreFramesComing = true;
  TavrelGPUImageFilter::prepareChain(
      rehearsedChain(nodes, form, originalSize), originalSize, [&] { sendPictures(nodes); }, kAreFramesComing);
}

void CameraChain::refreshGPUImagePipeline(const Form& form) {
  compileSwitchBlur(form.size);
  // In one go, so that no frame sees half of a chain.
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
    takeApart();
    zoom_ = form.zoom;
    if (zoom_ <= 1) {
      zoomFilter_ = nullptr;
      pixelBufferInput->addTarget(cropFilter, 0);
    } else {
      if (!zoomFilter_) zoomFilter_ = std::make_shared<CameraZoomFilter>();
      zoomFilter_->setFactor(zoom_);
      pixelBufferInput->addTarget(zoomFilter_, 0);
      zoomFilter_->addTarget(cropFilter, 0);
    }
    std::shared_ptr<TavrelGPUImageFilter> last = cropFilter;
    const auto append = [&last](const std::shared_ptr<TavrelGPUImageFilter>& filter) {
      last->addTarget(filter, 0);
      last = filter;
    };
    for (const auto& filter : filters) append(filter);
    if (form.isBlurred) {
      append(ownFilters_.emplace_back(makeSwitchBlur()));
    }
    // Where an application has forced a size on its own filter, a copy gets the camera's.
    if (!isZero(last->forcedSize())) append(ownFilters_.emplace_back(std::make_shared<TavrelGPUImageFilter>()));
    if (form.mirrorsPreview || form.mirrorsEncoded) last->addTarget(mirroredFilter, 0);

    const auto endBranch = [&](bool isMirrored, const std::shared_ptr<TavrelGPUImageInput>& destination) {
      const std::shared_ptr<TavrelGPUImageFilter> end = isMirrored ? mirroredFilter : last;
      end->addTarget(destination, 0);
      end->forceProcessingAtSize(form.size);
      forced_.push_back(end);
    };
    endBranch(form.mirrorsEncoded, delivery_);
    endBranch(form.mirrorsPreview, previewView);
  });
}

bool CameraChain::setZoom(double zoom) {
  if (zoom == zoom_) return false;
  if ((zoom > 1) != (zoom_ > 1)) return true;
  zoom_ = zoom;
  zoomFilter_->setFactor(zoom);
  return false;
}

void CameraChain::refreshCropRegion(Size originalSize, Size size) {
  if (originalSize == std::exchange(previeousOriginalSize, originalSize)) return;
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] { cropFilter->setCropRegion(cropRegion(originalSize, size)); });
}

bool CameraChain::process(const std::shared_ptr<PixelBuffer>& pixelBuffer, MediaTime frameTime, bool wait) {
  for (const auto& picture : picturesNeedToBeProcessed) picture->processImage();
  return pixelBufferInput->processCVPixelBuffer(pixelBuffer, frameTime, wait);
}

}  // namespace tavrel
