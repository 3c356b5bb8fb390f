#pragma once

#include "TavrelCaptureBase.h"

namespace tavrel::tool {

/// Crops the frame to a rectangle, given in 0…1, whose corner and size are rounded to whole pixels, at least one.
class CropEffect : public TavrelCaptureEffect {
 public:
  explicit CropEffect(const Rect& region) : region_(region) {}
  std::shared_ptr<TavrelCaptureEffect> copy() const override { return std::make_shared<CropEffect>(*this); }
  TavrelCaptureEffectNodes makeNodes(Size frameSize) override;
  Size sizeAfter(Size frameSize) const override;
  std::optional<Rect> inputFor(const Rect& output, Size frameSize) const override;
  TavrelCaptureEffectPart onPart(const Rect& input, Size frameSize) const override;

 private:
  Rect region_;
};

/// Rotates or mirrors the frame.
class TurnEffect : public TavrelCaptureEffect {
 public:
  explicit TurnEffect(TavrelGPUImageRotationMode rotation) : rotation_(rotation) {}
  std::shared_ptr<TavrelCaptureEffect> copy() const override { return std::make_shared<TurnEffect>(*this); }
  TavrelCaptureEffectNodes makeNodes(Size) override {
    return {.filters = {std::make_shared<TavrelGPUImageRotationFilter>(rotation_)}, .pictures = {}};
  }
  Size sizeAfter(Size frameSize) const override { return TavrelGPUImageRotatedSize(frameSize, rotation_); }
  std::optional<Rect> inputFor(const Rect& output, Size frameSize) const override;
  TavrelCaptureEffectPart onPart(const Rect& input, Size frameSize) const override;

 private:
  TavrelGPUImageRotationMode rotation_;
};

/// Blurs the frame by a Gaussian; the radius is its sigma.
class BlurEffect : public TavrelCaptureEffect {
 public:
  static constexpr double kLargestRadius = TavrelGPUImageSmoothBlurFilter::kLargestSigma;

  explicit BlurEffect(double radius) : radius_(radius) {}
  std::shared_ptr<TavrelCaptureEffect> copy() const override { return std::make_shared<BlurEffect>(*this); }
  TavrelCaptureEffectNodes makeNodes(Size frameSize) override;
  std::optional<Rect> inputFor(const Rect& output, Size frameSize) const override;

 private:
  double radius_;
};

}  // namespace tavrel::tool
