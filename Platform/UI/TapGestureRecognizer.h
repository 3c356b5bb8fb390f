#pragma once

#include <cstdint>
#include <functional>
#include <memory>

#include "Platform/Foundation/Export.h"
#include "Platform/Foundation/Geometry.h"

namespace tavrel {

class View;

/// Recognises taps: a finger or the primary mouse button goes down and up within 10 points. Main thread.
class TAVREL_API TapGestureRecognizer {
 public:
  using Action = std::function<void(TapGestureRecognizer& recognizer)>;

  explicit TapGestureRecognizer(Action action) : action_(std::move(action)) {}

  /// The view the recogniser was added to.
  std::shared_ptr<View> view() const { return view_.lock(); }
  bool isEnabled() const { return isEnabled_; }
  void setEnabled(bool isEnabled) { isEnabled_ = isEnabled; }
  /// How many consecutive taps, each within 0.35 s and 40 points of the one before; 1 by default.
  int numberOfTapsRequired() const { return numberOfTapsRequired_; }
  void setNumberOfTapsRequired(int number) { numberOfTapsRequired_ = number; }
  /// The last tap in `view`'s coordinates, or in those of the tree's root for nullptr.
  Point locationInView(const View* view) const;

  /// Called by the touch dispatcher when a tap ends at `point` of the tree's root, at `time` in seconds.
  void receiveTap(Point point, double time);

 private:
  friend class View;

  const Action action_;
  std::weak_ptr<View> view_;
  bool isEnabled_ = true;
  int numberOfTapsRequired_ = 1;
  int tapCount_ = 0;
  double lastTime_ = 0;
  Point lastPoint_;
};

}  // namespace tavrel
