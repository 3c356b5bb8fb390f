#pragma once

#include <atomic>

#include "Effects/TavrelCaptureEffect.h"
#include "Effects/TavrelExternalFilter.h"

namespace tavrel {

/// Has an application's filter process each frame. Observable: "externalFilterClass".
class TAVREL_API TavrelExternalFilterCaptureEffect : public TavrelCaptureEffect {
 public:
  TavrelExternalFilterCaptureEffect() = default;
  /// A copy takes over attachments and names the same class.
  TavrelExternalFilterCaptureEffect(const TavrelExternalFilterCaptureEffect& source);

  std::shared_ptr<TavrelCaptureEffect> copy() const override {
    return std::make_shared<TavrelExternalFilterCaptureEffect>(*this);
  }

  /// `externalFilterClassOf<…>()`; without one the effect does nothing. Read anew for every frame. Any thread.
  const TavrelExternalFilterClass* externalFilterClass() const { return externalFilterClass_; }
  void setExternalFilterClass(const TavrelExternalFilterClass* externalFilterClass) {
    changeValue(externalFilterClass_, externalFilterClass, "externalFilterClass");
  }

  /// What the class's object makes of `pixelBuffer`, or `pixelBuffer` itself where there is no class, no object or no
  /// result.
  std::shared_ptr<PixelBuffer> prepareFrame(const std::shared_ptr<PixelBuffer>& pixelBuffer,
                                            const SampleTiming& sampleTimingInfo, MediaTime frameTime) override;

 private:
  std::atomic<const TavrelExternalFilterClass*> externalFilterClass_ = nullptr;
};

}  // namespace tavrel
