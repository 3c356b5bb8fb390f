#pragma once

#include "Model/Studio.h"
#include "Panels/FileChooser.h"
#include "Panels/ThumbnailTextures.h"

namespace tavrel::studio {

/// The list of effects.
class EffectsPanel {
 public:
  EffectsPanel(Studio& studio, ThumbnailTextures& thumbnails, FileChooser& chooser)
      : studio_(studio), thumbnails_(thumbnails), chooser_(chooser) {}
  void draw();

 private:
  /// Draws one line; true when the list has changed.
  bool drawEffect(std::size_t index);

  Studio& studio_;
  ThumbnailTextures& thumbnails_;
  FileChooser& chooser_;
};

}  // namespace tavrel::studio
