#pragma once

#include <cstdint>
#include <map>
#include <memory>
#include <utility>

#include "Platform/Foundation/Export.h"
#include "Platform/Foundation/Geometry.h"

namespace tavrel {

class View;

/// Turns touches and mouse clicks into taps for the recognisers of the touched view and its superviews. A window has
/// one; without a window, create one and call its members. Main thread.
class TAVREL_API TouchDispatcher {
 public:
  /// Identifies a finger.
  using Touch = std::int64_t;

  explicit TouchDispatcher(std::weak_ptr<View> root) : root_(std::move(root)) {}

  /// Points are in the root's coordinates; `time` is in seconds on any steady clock.
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
