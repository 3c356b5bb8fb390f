#pragma once

#include "Effects/TavrelCaptureEffect.h"
#include "Effects/TavrelExternalFilter.h"
#include "Effects/TavrelObject.h"

namespace tavrel {

/// Has an application's filter process each frame. Observable: "externalFilterClass".
class TAVREL_API TavrelExternalFilterCaptureEffect : public TavrelObject, public TavrelCaptureEffect {
 public:
  TavrelExternalFilterCaptureEffect() = default;
  /// A copy takes over attachments and names the same class.
  TavrelExternalFilterCaptureEffect(const TavrelExternalFilterCaptureEffect& source) = default;

  std::shared_ptr<TavrelCaptureEffect> copy() const override;

  /// `externalFilterClassOf<…>()`; without one the effect does nothing.
  const TavrelExternalFilterClass* externalFilterClass() const { return externalFilterClass_; }
  void setExternalFilterClass(const TavrelExternalFilterClass* externalFilterClass) {
    changeValue(externalFilterClass_, externalFilterClass, "externalFilterClass");
  }

  /// The frame to go on with: what the class's object makes of `pixelBuffer`, or `pixelBuffer` itself where there is no
  /// class, no object or no result.
  std::shared_ptr<PixelBuffer> processedPixelBuffer(const std::shared_ptr<PixelBuffer>& pixelBuffer,
                                                    const SampleTiming& sampleTimingInfo) const;

 private:
  const TavrelExternalFilterClass* externalFilterClass_ = nullptr;
};

}  // namespace tavrel
