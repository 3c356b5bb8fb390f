#pragma once

#include <deque>
#include <memory>
#include <mutex>

#include "Capture/Video/TavrelCamera.h"

namespace tavrel {

/// Those who wait for still pictures of a camera, in the order of their requests. Any thread.
class CameraSnapshots {
 public:
  using Completion = TavrelCamera::SnapshotCompletion;

  /// The picture of a still, as it enters the chain.
  static Expected<std::shared_ptr<PixelBuffer>> pixelBufferOf(const Expected<std::shared_ptr<SampleBuffer>>& still);

  void add(Completion completion);
  /// Answers the first, if anybody waits, with the picture in `framebuffer`. Video-processing queue.
  void answer(TavrelGPUImageFramebuffer& framebuffer);

 private:
  std::mutex snapshotLock;
  std::deque<Completion> snapshotCompletionHandlers;
};

}  // namespace tavrel
