#include "Model/BeforePicture.h"

#include <atomic>

namespace tavrel::studio {

/// Hands the frames that come by to a source of its own.
class BeforePicture::Tap : public TavrelCaptureEffect {
 public:
  explicit Tap(const std::shared_ptr<TavrelGPUImageView>& view) { source_->addTarget(view); }
  std::shared_ptr<TavrelCaptureEffect> copy() const override { return nullptr; }
  std::shared_ptr<PixelBuffer> prepareFrame(const std::shared_ptr<PixelBuffer>& pixelBuffer, const SampleTiming&,
                                            MediaTime frameTime) override {
    if (isOn && pixelBuffer && frameTime.isNumeric()) source_->processCVPixelBuffer(pixelBuffer, frameTime, false);
    return pixelBuffer;
  }

  std::atomic<bool> isOn = false;

 private:
  const std::shared_ptr<TavrelGPUImageCVPixelBufferInput> source_ =
      std::make_shared<TavrelGPUImageCVPixelBufferInput>();
};

BeforePicture::BeforePicture() : view_(std::make_shared<TavrelGPUImageView>()), tap_(std::make_shared<Tap>(view_)) {
  view_->setFillMode(kTavrelGPUImageFillModePreserveAspectRatioAndFill);
}

BeforePicture::~BeforePicture() = default;

std::shared_ptr<TavrelCaptureEffect> BeforePicture::effect() const { return tap_; }

bool BeforePicture::isOn() const { return tap_->isOn; }

void BeforePicture::setOn(bool isOn) { tap_->isOn = isOn; }

}  // namespace tavrel::studio
