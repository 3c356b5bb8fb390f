#pragma once

#include <functional>

#include "GPUImage/TavrelGPUImageInput.h"
#include "Platform/Foundation/Error.h"

namespace tavrel {

/// Offers the output of a graph to other programs as a camera.
///
///     without readers ⇄ read ⇄ paused (readers see the last picture)
///            └── the service or the node fails ──▶ without readers ──▶ … (looked for every two seconds)
///
/// Readers get BGRA, NV12 or YUY2, whichever they ask for; Y Cb Cr is BT.601 of limited range, as webcams send it. Each
/// frame is drawn to the configured size, with the input rotation applied, once for all readers and only if there is
/// one, and goes out at once, at the configured rate at most. When the source stalls, the last picture is repeated at
/// that rate. A reader that stops reading misses pictures and delays nobody. A new reader's first picture is a new
/// frame.
///
/// A PipeWire camera serves several readers, in the layout that the first one takes. A loopback node (v4l2loopback)
/// takes the first layout that it supports, and does not tell who reads: it counts as read by one. `sentFrames` counts
/// repetitions, too. Any thread; but frames come on the video-processing queue, and handlers are called on the main
/// thread: the readers' when the first one comes and when the last one leaves, and at once if there is one already.
/// `create` fails with `CaptureErrorCode::invalidConfiguration`, and if there is no such service, node or GL context.
class TAVREL_API TavrelGPUImageCameraOutput : public TavrelGPUImageInput {
 public:
  struct Configuration {
    std::string name = "Tavrel";           ///< by which people choose the camera
    std::string destination = "pipewire";  ///< or the path of a loopback node: "/dev/video9"
    Size size = {1280, 720};               ///< even numbers of pixels, 2 to 16384
    double framesPerSecond = 30;           ///< 1 to 240
    std::string layouts = {};  ///< of "nv12,yuy2,bgra", what readers may have, best first; empty: all, the usual first
  };
  static Expected<std::shared_ptr<TavrelGPUImageCameraOutput>> create(const Configuration& configuration);
  virtual bool hasReaders() const = 0;
  virtual int readerCount() const = 0;
  virtual void setReadersHandler(std::function<void(bool hasReaders)> handler) = 0;
  virtual void setFailureHandler(std::function<void(const Error& error)> handler) = 0;
  virtual bool isPaused() const = 0;
  virtual void setPaused(bool newValue) = 0;
  virtual std::uint64_t sentFrames() const = 0;
};

}  // namespace tavrel
