#pragma once

#include <atomic>

#include "Effects/TavrelCaptureEffect.h"
#include "Effects/TavrelExternalFilter.h"

namespace tavrel {

/// Processes each frame by an application's external filter. Observable: "externalFilterClass".
class TAVREL_API TavrelExternalFilterCaptureEffect : public TavrelCaptureEffect {
 public:
  TavrelExternalFilterCaptureEffect() = default;
  /// Copies the attachments and the class.
  TavrelExternalFilterCaptureEffect(const TavrelExternalFilterCaptureEffect& source);

  std::shared_ptr<TavrelCaptureEffect> copy() const override {
    return std::make_shared<TavrelExternalFilterCaptureEffect>(*this);
  }

  /// `externalFilterClassOf<…>()`; nullptr disables the effect. Read for every frame. Any thread.
  const TavrelExternalFilterClass* externalFilterClass() const { return externalFilterClass_; }
  void setExternalFilterClass(const TavrelExternalFilterClass* externalFilterClass) {
    changeValue(externalFilterClass_, externalFilterClass, "externalFilterClass");
  }

  /// The filter's result, or `pixelBuffer` if there is no class, instance or result.
  std::shared_ptr<PixelBuffer> prepareFrame(const std::shared_ptr<PixelBuffer>& pixelBuffer,
                                            const SampleTiming& sampleTimingInfo, MediaTime frameTime) override;

 private:
  std::atomic<const TavrelExternalFilterClass*> externalFilterClass_ = nullptr;
};

}  // namespace tavrel
