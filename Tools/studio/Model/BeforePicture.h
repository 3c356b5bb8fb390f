#pragma once

#include <memory>

#include "TavrelCaptureBase.h"

namespace tavrel::studio {

/// The camera's picture as it was before the effects, beside a chain that goes on with them: what is recorded does not
/// change while a person compares. Costs nothing while it is off. Main thread.
class BeforePicture {
 public:
  BeforePicture();
  ~BeforePicture();

  /// To be the first of the camera's effects; changes nothing.
  std::shared_ptr<TavrelCaptureEffect> effect() const;
  bool isOn() const;
  void setOn(bool isOn);
  /// Shows the latest frame since `setOn(true)`, cropped to the view's proportions.
  const std::shared_ptr<TavrelGPUImageView>& view() const { return view_; }

 private:
  class Tap;

  const std::shared_ptr<TavrelGPUImageView> view_;
  const std::shared_ptr<Tap> tap_;
};

}  // namespace tavrel::studio
