#pragma once

#include <string>
#include <vector>

#include "Model/Studio.h"
#include "Panels/FileChooser.h"

namespace tavrel::studio {

/// How and where movies are recorded, and the keys.
class SettingsPanel {
 public:
  SettingsPanel(Studio& studio, FileChooser& chooser) : studio_(studio), chooser_(chooser) {}
  void draw();

 private:
  void chooseCoding();
  void chooseFolder(const char* name, std::filesystem::path& folder, const std::filesystem::path& used);

  Studio& studio_;
  FileChooser& chooser_;
  std::vector<std::pair<std::string, std::string>> codecs_;  // name for people, value; empty before the first drawing
};

}  // namespace tavrel::studio
