#pragma once

#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <thread>

#include "Platform/Capture/CaptureClock.h"
#include "Platform/Capture/Private/CaptureDriver.h"
#include "Platform/Capture/Private/DeliveryRecord.h"
#include "Platform/Capture/Virtual/VirtualCaptureSystem.h"

namespace tavrel {

/// What virtual cameras and microphones have in common: they fail as they are told, and while open a thread waits for
/// each sample's time on the capture clock and makes it then. On a real-time clock a sample whose time has passed by
/// more than a device's patience is dropped; on another clock time waits for the device.
class VirtualDriver : public CaptureDriver {
 public:
  const CaptureDeviceDescription& description() const override { return description_; }
  CaptureCapabilities capabilities() const override;
  Expected<void> checkAvailable() override;
  Expected<void> checkConfigurable() override;
  bool isRealTime() const override;
  Expected<void> open(CaptureRun run) override;
  void close() override;
  std::optional<CaptureDelivery> delivery() const override { return delivery_.get(); }

  struct Faults {
    std::optional<Error> lockError;
    std::optional<Error> inputError;
    std::optional<Error> openError;
    VirtualCaptureSystem::Support support;
    bool isStalled = false;
    double latency = 0;  ///< seconds, of openings from now on
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
  /// With the mutex held.
  bool zooms() const { return faults_.support.zoom; }
  /// `threadName` has at most 15 characters; `patience` is the number of samples that may be due before one is late.
  VirtualDriver(CaptureDeviceDescription description, const char* threadName, unsigned patience)
      : description_(std::move(description)), threadName_(threadName), patience_(patience) {}

  bool isOpen() const;
  DeliveryRecord delivery_;
  /// The scene's time at an instant of the clock: common to all virtual devices, so that flash and beep meet.
  static double sceneTimeAt(const MediaTime& time);

 private:
  /// For what takes longer than a sample; the time of samples begins after it.
  virtual void warmUp(const CaptureRun&) {}
  /// Makes everything ready for samples from `now` on; it is not open if that fails.
  virtual Expected<void> prepare(const CaptureRun& run, const MediaTime& now) = 0;
  // The samples of one opening, counted from 0. On the device's thread.
  virtual MediaTime dueTime(std::uint64_t number) const = 0;
  virtual Expected<std::shared_ptr<SampleBuffer>> sample(std::uint64_t number) = 0;
  /// What is told about a sample that was dropped; a device that tells nothing has nothing.
  virtual std::optional<SampleTiming> timingOfDrop(std::uint64_t) const { return std::nullopt; }

  void loop(const std::stop_token& stop, CaptureClock::Attendee attendee);
  bool capture(std::uint64_t number);

  const CaptureDeviceDescription description_;
  const char* const threadName_;
  const unsigned patience_;
  mutable std::mutex mutex_;
  Faults faults_;
  std::shared_ptr<CaptureSink> sink_;  // while open
  std::shared_ptr<CaptureClock> clock_;
  bool failureWasLogged_ = false;
  std::jthread thread_;
};

/// A camera that draws `scene`. Its lens and light meter act on the whole picture: it is sharp when it focuses on the
/// centre, and the more blurred the farther the point is from it; it is brighter when it meters below the centre,
/// darker above. A locked mode keeps what there was.
std::shared_ptr<VirtualDriver> makeVirtualCameraDriver(CaptureDeviceDescription description,
                                                       std::shared_ptr<class VirtualScene> scene);
/// Makes the sound for a rate.
using VirtualSoundMaker = std::function<Expected<std::shared_ptr<class VirtualSound>>(int sampleRate)>;
/// A microphone that delivers mono buffers of 256 samples, each when its last one is due: whoever stamps sound at its
/// arrival is late by one buffer, so buffers are short.
std::shared_ptr<VirtualDriver> makeVirtualMicrophoneDriver(CaptureDeviceDescription description,
                                                           VirtualSoundMaker makeSound, int channelCount = 1);

}  // namespace tavrel
