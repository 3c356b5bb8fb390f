#pragma once

#include <optional>

#include "Model/Layout.h"
#include "Model/Studio.h"

namespace tavrel::studio {

/// What lies on the picture: the selected sticker's frame and handles, the ring of a click that focuses, the mark of a
/// recording while the panels are folded away. Main thread.
class PicturePanel {
 public:
  explicit PicturePanel(Studio& studio) : studio_(studio) {}
  void draw(const Layout& layout);

 private:
  void handleMouse(const Layout& layout, bool isOver);
  void press(Point place, double reach, Point mouse);
  void focus(Point place);
  void drawSticker(const Layout& layout) const;
  void drawRing() const;
  void drawMark(const Layout& layout) const;

  struct Drag {
    StickerGrip grip;
    StickerPlace start;
    Point from;
  };
  struct Ring {
    Point mouse;
    double since;
  };

  Studio& studio_;
  std::optional<Drag> drag_;
  std::optional<Ring> ring_;
};

}  // namespace tavrel::studio
