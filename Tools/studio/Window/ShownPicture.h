#pragma once

#include <cstdint>
#include <memory>

#include "Platform/Graphics/GLDrawable.h"
#include "TavrelCaptureBase.h"

namespace tavrel::studio {

/// The latest picture of one of the library's views, for the window to draw. Main thread.
class ShownPicture {
 public:
  /// Looks at `view`, which draws its pictures in `size` pixels from now on. True if there is one that `take` has not
  /// returned yet.
  bool look(const std::shared_ptr<TavrelGPUImageView>& view, Size size);
  /// The latest picture; nullptr before the first. Hold it while it is drawn.
  const std::shared_ptr<const GLDrawableFrame>& take();

 private:
  std::weak_ptr<TavrelGPUImageView> view_;
  std::shared_ptr<const GLDrawableFrame> latest_;
  std::uint64_t taken_ = 0;
};

}  // namespace tavrel::studio
