#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>

#include "Platform/Capture/CaptureClock.h"
#include "Platform/Capture/Private/CaptureDriver.h"
#include "Platform/Capture/Virtual/VirtualCaptureSystem.h"

namespace tavrel {

/// What virtual cameras and microphones have in common: they fail as they are told.
class VirtualDriver : public CaptureDriver {
 public:
  explicit VirtualDriver(CaptureDeviceDescription description) : description_(std::move(description)) {}

  const CaptureDeviceDescription& description() const override { return description_; }
  CaptureCapabilities capabilities() const override;
  Expected<void> checkAvailable() override;
  Expected<void> checkConfigurable() override;
  bool isRealTime() const override;

  struct Faults {
    std::optional<Error> lockError;
    std::optional<Error> inputError;
    std::optional<Error> openError;
    VirtualCaptureSystem::Support support;
    bool isStalled = false;
    bool isDisconnected = false;
  };
  /// Changes what goes wrong.
  template <typename Change>
  void change(Change&& change) {
    const std::lock_guard lock(mutex_);
    change(faults_);
  }
  Faults faults() const;
  /// The running device fails.
  void fail(Error error);

 protected:
  /// For `open`: the clock to run on, or why it cannot be opened. `end` undoes it.
  Expected<std::shared_ptr<CaptureClock>> begin(std::shared_ptr<CaptureSink> sink);
  void end();
  bool isStalled() const;
  /// The scene's time at an instant of the clock: common to all virtual devices, so that flash and beep meet.
  static double sceneTimeAt(const MediaTime& time);

 private:
  const CaptureDeviceDescription description_;
  mutable std::mutex mutex_;
  Faults faults_;
  std::shared_ptr<CaptureSink> sink_;  // while open
  std::shared_ptr<CaptureClock> clock_;
};

/// A camera that draws `scene`. Its lens and light meter act on the whole picture: it is sharp when it focuses on the
/// centre, and the more blurred the farther the point is from it; it is brighter when it meters below the centre,
/// darker above. A locked mode keeps what there was.

std::shared_ptr<VirtualDriver> makeVirtualCameraDriver(CaptureDeviceDescription description,
                                                       std::shared_ptr<class VirtualScene> scene);
/// Makes the sound for a rate.
using VirtualSoundMaker = std::function<Expected<std::shared_ptr<class VirtualSound>>(int sampleRate)>;
std::shared_ptr<VirtualDriver> makeVirtualMicrophoneDriver(CaptureDeviceDescription description,
                                                           VirtualSoundMaker makeSound);

}  // namespace tavrel
