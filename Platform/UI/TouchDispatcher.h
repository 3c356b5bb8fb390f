#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <utility>

#include "Platform/Foundation/Export.h"
#include "Platform/Foundation/Geometry.h"

namespace tavrel {

class View;

/// Turns fingers and mouse buttons into taps for the recognisers of the touched view and the views around it.
/// A window has one; without a window it can be fed by hand. Main thread.
class TAVREL_API TouchDispatcher {
 public:
  /// Tells fingers apart; any numbers.
  using Touch = std::int64_t;

  explicit TouchDispatcher(std::weak_ptr<View> root) : root_(std::move(root)) {}

  /// Points in the root's coordinates; `time` in seconds on any one clock.
  void touchBegan(Touch touch, Point point);
  void touchMoved(Touch touch, Point point);
  void touchEnded(Touch touch, Point point, double time);
  void cancelAll() { touches_.clear(); }

 private:
  struct Began {
    Point point;
    std::weak_ptr<View> view;
    bool isTap = true;
  };

  std::weak_ptr<View> root_;
  std::map<Touch, Began> touches_;
};

}  // namespace tavrel
