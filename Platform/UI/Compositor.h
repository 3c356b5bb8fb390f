#pragma once

#include <memory>
#include <optional>

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"
#include "Platform/Foundation/Geometry.h"
#include "Platform/Imaging/Image.h"
#include "Platform/UI/Color.h"

namespace tavrel {

class View;

/// Composes view trees into images, without a window. The same drawing fills windows. Main thread; a GL context of its
/// own, on `GraphicsDisplay`.
class TAVREL_API Compositor {
 public:
  /// What an image is to look like.
  struct Options {
    std::optional<double> scale = {};  ///< pixels for each point; the main screen's when left out
    std::optional<double> time = {};   ///< of the animations, on `Layer::currentTime`'s clock; now when left out
    Color background = Color::clear();
  };

  Compositor();
  Compositor(const Compositor&) = delete;
  Compositor& operator=(const Compositor&) = delete;
  ~Compositor();

  /// The tree below `root` as it stands, laid out if need be; pictures of GL-drawable layers are taken as they were
  /// presented last. Premultiplied R, G, B, A bytes, as large as the root's bounds, rounded up to whole pixels. Fails
  /// (`UIStatus`) for bounds without pixels or beyond the largest texture, and as `GLContext::create` does.
  Expected<std::shared_ptr<Image>> imageOf(View& root, const Options& options);
  Expected<std::shared_ptr<Image>> imageOf(View& root) { return imageOf(root, {}); }

 private:
  struct Implementation;
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavrel
