#pragma once

#include <memory>
#include <utility>

#include "Effects/TavrelCaptureEffect.h"

namespace tavrel {

/// Puts a filter of the application's own into the chain, or one of the library's that has no descriptor, such as a
/// blur. The filter's parameters may be changed at any time, as the filter itself says; a camera leaves its completion
/// block, its rotation and its forced size as they are. Observable: "filter".
class TAVREL_API TavrelFilterCaptureEffect : public TavrelCaptureEffect {
 public:
  explicit TavrelFilterCaptureEffect(std::shared_ptr<TavrelGPUImageFilter> filter = nullptr)
      : filter_(std::move(filter)) {}

  /// It takes over attachments and shares the filter: a filter can be in one chain at a time.
  std::shared_ptr<TavrelCaptureEffect> copy() const override {
    return std::make_shared<TavrelFilterCaptureEffect>(*this);
  }
  /// The filter itself.
  TavrelCaptureEffectNodes makeNodes(Size frameSize) override;
  Size sizeAfter(Size frameSize) const override;

  /// Without one the effect does nothing.
  const std::shared_ptr<TavrelGPUImageFilter>& filter() const { return filter_; }
  void setFilter(std::shared_ptr<TavrelGPUImageFilter> filter) { changeProperty(filter_, std::move(filter), "filter"); }

 private:
  std::shared_ptr<TavrelGPUImageFilter> filter_;
};

}  // namespace tavrel
