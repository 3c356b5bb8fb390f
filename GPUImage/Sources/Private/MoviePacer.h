#pragma once

#include "Platform/Media/MediaTime.h"

namespace tavrel {

/// Keeps frames from leaving sooner after each other than their times say. Of the thread that reads pictures.
class MoviePacer {
 public:
  /// Time 0 is now. Before it, the first frame leaves at once.
  void restart();
  /// Returns when a frame of this time may leave; one that is late leaves at once.
  void waitFor(MediaTime time);

 private:
  MediaTime previousFrameTime_;
  double previousActualFrameTime_ = 0;
};

}  // namespace tavrel
