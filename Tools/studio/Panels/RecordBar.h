#pragma once

#include "Model/Layout.h"
#include "Model/Studio.h"

namespace tavrel::studio {

/// The buttons below the picture, what is to be known of the recording, and the line of messages.
class RecordBar {
 public:
  explicit RecordBar(Studio& studio) : studio_(studio) {}
  void draw(const Layout& layout);
  /// The line alone, over the picture, while the panels are folded away.
  void drawMessageAlone(const Layout& layout);

 private:
  void drawButtons();
  void drawMeter() const;
  void drawMessage();

  Studio& studio_;
};

}  // namespace tavrel::studio
