#pragma once

#include <memory>

#include "Platform/UI/Layer.h"

namespace tavrel {

class GLDrawable;

/// A layer whose contents are drawn by GL, on any thread; see `GLDrawable`.
///
/// The latest presented frame fills the layer; a frame of an earlier size is shown unscaled, centred. The storage has
/// the layer's size times `contentsScale`, truncated to whole pixels.
class TAVREL_API DrawableLayer : public Layer {
 public:
  DrawableLayer();
  ~DrawableLayer() override;

  /// Usable on any thread, even after the layer is destroyed.
  const std::shared_ptr<GLDrawable>& drawable() const { return drawable_; }

 protected:
  void contentsSizeDidChange() override;

 private:
  const std::shared_ptr<GLDrawable> drawable_;
};

}  // namespace tavrel
