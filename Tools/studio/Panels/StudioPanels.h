#pragma once

#include <string>

#include "Model/Layout.h"
#include "Model/Studio.h"
#include "Panels/CameraPanel.h"
#include "Panels/EffectsPanel.h"
#include "Panels/FileChooser.h"
#include "Panels/PicturePanel.h"
#include "Panels/RecordBar.h"
#include "Panels/SettingsPanel.h"
#include "Panels/StatisticsPanel.h"
#include "Panels/ThumbnailTextures.h"

namespace tavrel::studio {

/// All that is drawn besides the picture. Main thread.
class StudioPanels {
 public:
  explicit StudioPanels(Studio& studio) : studio_(studio) {}

  /// Between ImGui's beginning and end of a drawing.
  void draw(const Layout& layout);
  /// A key by SDL's name, pressed while no text is typed. False for one that means nothing.
  bool press(const std::string& key);
  void release(const std::string& key);

 private:
  void drawSide(const Layout& layout);

  Studio& studio_;
  ThumbnailTextures thumbnails_;
  FileChooser chooser_{thumbnails_};
  PicturePanel picture_{studio_};
  CameraPanel camera_{studio_};
  EffectsPanel effects_{studio_, thumbnails_, chooser_};
  SettingsPanel settings_{studio_, chooser_};
  StatisticsPanel statistics_{studio_};
  RecordBar bar_{studio_};
};

}  // namespace tavrel::studio
