#pragma once

#include <memory>

#include "Effects/TavrelCaptureEffect.h"
#include "Platform/Foundation/Pimpl.h"

namespace tavrel {

/// Adds any filter to the chain: the application's own, or one of the library's without an effect class, such as a
/// blur. The filter's parameters may change while frames run; a camera preserves its completion block, rotation and
/// forced size. Observable: "filter".
class TAVREL_API TavrelFilterCaptureEffect : public TavrelCaptureEffect {
 public:
  explicit TavrelFilterCaptureEffect(std::shared_ptr<TavrelGPUImageFilter> filter = nullptr);
  /// Copies the attachments and shares the filter, which can be in one chain at a time.
  TavrelFilterCaptureEffect(const TavrelFilterCaptureEffect& source);
  ~TavrelFilterCaptureEffect() override;

  std::shared_ptr<TavrelCaptureEffect> copy() const override;
  /// The filter.
  TavrelCaptureEffectNodes makeNodes(Size frameSize) override;
  Size sizeAfter(Size frameSize) const override;

  /// nullptr disables the effect.
  const std::shared_ptr<TavrelGPUImageFilter>& filter() const;
  void setFilter(std::shared_ptr<TavrelGPUImageFilter> filter);

 private:
  struct Implementation;
  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
