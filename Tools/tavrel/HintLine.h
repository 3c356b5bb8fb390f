#pragma once

#include <memory>
#include <string>

#include "TavrelCaptureBase.h"

namespace tavrel::tool {

/// A line of capitals over the lower edge of a view that fills its superview: white on black, a little translucent.
/// Clicks go through it. Main thread.
class HintLine : public View {
 public:
  /// At most so many characters are shown.
  static constexpr int kMostCharacters = 46;

  HintLine();
  /// With a red mark before it for what is being recorded.
  void setText(const std::string& text, bool isRecording);
  void layoutSubviews() override;

 private:
  const std::shared_ptr<TavrelGPUImageView> strip_;
  std::shared_ptr<TavrelGPUImagePicture> picture_;
  std::string shown_;
};

}  // namespace tavrel::tool
