#pragma once

#include <memory>

#include "Platform/UI/Layer.h"

namespace tavrel {

class GLDrawable;

/// A layer whose contents GL draws, on any thread: see `GLDrawable`.
///
/// The newest presented picture fills the layer. While it is still of an earlier size it is shown unscaled about the
/// centre instead. Its storage has the layer's size times `contentsScale`, cut to whole pixels.
class TAVREL_API DrawableLayer : public Layer {
 public:
  DrawableLayer();
  ~DrawableLayer() override;

  /// May be used from any thread, also when the layer is gone.
  const std::shared_ptr<GLDrawable>& drawable() const { return drawable_; }

 protected:
  void contentsSizeDidChange() override;

 private:
  const std::shared_ptr<GLDrawable> drawable_;
};

}  // namespace tavrel
