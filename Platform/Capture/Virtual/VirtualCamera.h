#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>

#include "Platform/Capture/CaptureClock.h"
#include "Platform/Capture/Virtual/VirtualScene.h"
#include "Platform/Dispatch/DispatchQueue.h"

namespace tavrel {

/// A camera without hardware: it draws a scene at a frame rate, paced by a clock, on a thread of its own
/// ("tavrel.vcam").
///
/// At most two frames are on their way to the handler. On a real-time clock a frame that is due while both are there,
/// or that came due while an earlier one was being drawn, is dropped and counted; on another clock the camera waits.
/// All members may be called from any thread.
///
///     stopped ──start──▶ running ──stop──▶ stopped
class TAVREL_API VirtualCamera {
 public:
  /// Receives a BGRA picture that nobody writes to any more, and the time of its frame on the camera's clock: start
  /// time + n / frame rate, rounded to the clock's timescale, not when it was drawn.
  using Handler = std::function<void(std::shared_ptr<PixelBuffer>, MediaTime presentationTime)>;
  /// Receives the time of a frame that was dropped, on the camera's thread.
  using DropHandler = std::function<void(MediaTime presentationTime)>;

  struct Configuration {
    int width = 1280;       ///< at least 16
    int height = 720;       ///< at least 16
    double frameRate = 30;  ///< frames a second, above 0
    std::shared_ptr<CaptureClock> clock = CaptureClock::realTime();
  };

  /// How the controls stand; see `VirtualFrame` for the units. Values outside their range are moved to its nearest end.
  struct Controls {
    double torchLevel = 0;
    double zoom = 1;
    double focus = 1;
    double exposure = 1;
  };

  /// A camera named "front", "back" (drawn scenes) or "file:PATH" (a movie or picture). Fails (`CaptureErrorCode`) for
  /// any other name, for a file that is no scene, and for a configuration out of range.
  static Expected<std::shared_ptr<VirtualCamera>> create(std::string_view name, Configuration configuration);
  /// A camera that looks at `scene`, which belongs to it from now on.
  static Expected<std::shared_ptr<VirtualCamera>> create(std::shared_ptr<VirtualScene> scene,
                                                         Configuration configuration);

  VirtualCamera(const VirtualCamera&) = delete;
  VirtualCamera& operator=(const VirtualCamera&) = delete;
  /// Stops.
  ~VirtualCamera();

  const Configuration& configuration() const;

  /// Delivers frames to `handler` on `queue`, the first one at `startTime` (now, when it is not numeric). Give the
  /// microphone the same start time to put flash and beep on the same instants. Does nothing while running.
  ///
  /// Without a queue the handler is called on the camera's thread, which then waits for it. `sceneStart` is the scene's
  /// time at `startTime`, in seconds.
  void start(Handler handler, std::shared_ptr<DispatchQueue> queue, MediaTime startTime = MediaTime::invalid(),
             double sceneStart = 0);
  /// For the next start.
  void setDropHandler(DropHandler handler);
  /// Ends the delivery; when it returns, no handler runs any more, and none will. From inside the handler it returns at
  /// once, and the running call is the last one.
  void stop();
  bool isRunning() const;

  /// Takes effect with the next frame that is drawn.
  void setControls(const Controls& controls);
  Controls controls() const;
  /// Takes effect after the frame that is due next; stamps go on near that frame in the new steps, so that one falls on
  /// each of the scene's seconds. Ignored unless above 0.
  void setFrameRate(double framesPerSecond);
  double frameRate() const;

  /// Since the last start.
  std::uint64_t deliveredFrames() const;
  std::uint64_t droppedFrames() const;

 private:
  struct Implementation;
  explicit VirtualCamera(std::unique_ptr<Implementation> implementation);

  std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavrel
