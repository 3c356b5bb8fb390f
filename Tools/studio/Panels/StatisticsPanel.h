#pragma once

#include "Model/Studio.h"

namespace tavrel::studio {

/// Where the time of frames goes. What it shows is measured while it is seen.
class StatisticsPanel {
 public:
  explicit StatisticsPanel(Studio& studio) : studio_(studio) {}
  void draw();

 private:
  void drawGraph() const;
  void drawLegend() const;
  void drawTotals() const;
  void drawTrace();

  Studio& studio_;
};

}  // namespace tavrel::studio
