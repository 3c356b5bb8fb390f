#pragma once

#include "Effects/TavrelCaptureEffect.h"
#include "Effects/TavrelExternalFilter.h"
#include "Platform/Foundation/Pimpl.h"

namespace tavrel {

/// Processes each frame by an application's external filter. Observable: "externalFilterClass".
class TAVREL_API TavrelExternalFilterCaptureEffect : public TavrelCaptureEffect {
 public:
  TavrelExternalFilterCaptureEffect();
  /// Copies the attachments and the class.
  TavrelExternalFilterCaptureEffect(const TavrelExternalFilterCaptureEffect& source);
  ~TavrelExternalFilterCaptureEffect() override;

  std::shared_ptr<TavrelCaptureEffect> copy() const override;

  /// `externalFilterClassOf<…>()`; nullptr disables the effect. Read for every frame. Any thread.
  const TavrelExternalFilterClass* externalFilterClass() const;
  void setExternalFilterClass(const TavrelExternalFilterClass* externalFilterClass);

  /// The filter's result, or `pixelBuffer` if there is no class, instance or result.
  std::shared_ptr<PixelBuffer> prepareFrame(const std::shared_ptr<PixelBuffer>& pixelBuffer,
                                            const SampleTiming& sampleTimingInfo, MediaTime frameTime) override;

 private:
  struct Implementation;
  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
