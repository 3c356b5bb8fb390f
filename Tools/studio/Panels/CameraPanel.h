#pragma once

#include "Model/Studio.h"

namespace tavrel::studio {

/// Chooses devices and their format, and holds the camera's controls and the camera for other programs.
class CameraPanel {
 public:
  explicit CameraPanel(Studio& studio) : studio_(studio) {}
  void draw();

 private:
  void chooseDevices();
  void chooseFormat();
  void showLevel() const;
  void showControls();
  void showCameraForOthers();

  Studio& studio_;
};

}  // namespace tavrel::studio
