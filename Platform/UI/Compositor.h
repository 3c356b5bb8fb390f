#pragma once

#include <memory>
#include <optional>

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"
#include "Platform/Foundation/Geometry.h"
#include "Platform/Foundation/Pimpl.h"
#include "Platform/Imaging/Image.h"
#include "Platform/UI/Color.h"

namespace tavrel {

class View;

/// Renders view trees into images without a window, exactly as windows show them. Has its own GL context. Main thread.
class TAVREL_API Compositor {
 public:
  /// How an image is rendered.
  struct Options {
    std::optional<double> scale = {};  ///< pixels per point; by default the main screen's
    std::optional<double> time = {};   ///< animation time on the clock of `Layer::currentTime`; by default now
    Color background = Color::clear();
  };

  Compositor();
  Compositor(const Compositor&) = delete;
  Compositor& operator=(const Compositor&) = delete;
  ~Compositor();

  /// Renders the tree below `root`, after laying it out if needed. GL-drawable layers show their latest presented
  /// frame. The image has premultiplied R, G, B, A bytes and the size of the root's bounds, rounded up to whole pixels.
  /// Fails (`UIStatus`) if the bounds are empty or exceed the largest texture, and as `GLContext::create` does.
  Expected<std::shared_ptr<Image>> imageOf(View& root, const Options& options);
  Expected<std::shared_ptr<Image>> imageOf(View& root) { return imageOf(root, {}); }

 private:
  struct Implementation;
  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
