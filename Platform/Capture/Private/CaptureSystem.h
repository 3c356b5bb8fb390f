#pragma once

#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Capture/CaptureDevice.h"
#include "Platform/Capture/CaptureDeviceInput.h"
#include "Platform/Capture/CaptureOutput.h"
#include "Platform/Capture/Private/CaptureBackend.h"
#include "Platform/Capture/Virtual/Private/VirtualCaptureBackend.h"
#include "Platform/Dispatch/DispatchQueue.h"

namespace tavrel {

/// All devices of the process and the backends that find them. Created at first use; lives until the process ends. Any
/// thread.
class CaptureSystem : private CaptureBackendObserver {
 public:
  static CaptureSystem& shared();

  /// When synthetic devices are among those that are listed; named, they are found at any time.
  enum class Synthetic { never, withoutRealOnes, always };

  std::vector<std::shared_ptr<CaptureDevice>> devices(MediaType mediaType);
  std::shared_ptr<CaptureDevice> defaultDevice(MediaType mediaType);
  std::shared_ptr<CaptureDevice> deviceWithUniqueID(std::string_view uniqueID);
  Expected<std::shared_ptr<CaptureDevice>> deviceNamed(std::string_view name, MediaType mediaType,
                                                       CaptureDevicePosition filePosition);
  Expected<std::shared_ptr<CaptureDevice>> addFile(const std::filesystem::path& path, MediaType mediaType,
                                                   CaptureDevicePosition position);
  /// Whether synthetic devices are listed though nobody asked for them.
  bool hasStandIns();
  static bool isTakenOnlyByName(const CaptureDevice& device);
  CaptureAuthorizationStatus authorizationStatus(MediaType mediaType);
  bool requestAccess(MediaType mediaType);
  static CaptureControls controlsOf(const CaptureDevice& device);
  /// Whether an input can be made of the device.
  static Expected<void> checkAvailable(const CaptureDevice& device);

  /// Where sessions look after their devices; serial. Nothing on it waits for delegates.
  const std::shared_ptr<DispatchQueue>& queue() const { return queue_; }
  VirtualCaptureBackend& virtualBackend() { return *virtual_; }

  /// Stops the backends, forgets their devices, and starts with those that `TAVREL_CAPTURE` names now. Sessions must
  /// not run.
  void restart();
  /// The same with these backends besides the virtual one.
  void restartWith(std::vector<std::shared_ptr<CaptureBackend>> backends, Synthetic synthetic);
  void removeFiles();
  /// Settings of all devices as at the start.
  void resetSettings();
  void setListed(std::string_view uniqueID, bool listed);

 private:
  friend class VirtualCaptureBackend;

  CaptureSystem();
  ~CaptureSystem() override = default;

  void deviceAppeared(std::shared_ptr<CaptureDriver> driver) override;
  void deviceDisappeared(const std::shared_ptr<CaptureDriver>& driver) override;
  void servicesWereReset() override;

  void ensureStarted();
  void startBackends();
  void stopBackends();
  void forget();
  CaptureDevicePosition positionFor(const CaptureDeviceDescription& description) const;
  std::shared_ptr<CaptureDevice> find(std::string_view uniqueID) const;
  static bool isListed(const CaptureDevice& device);
  static bool isDefault(const CaptureDevice& device);
  static bool isFile(const CaptureDevice& device);
  // With `startMutex_` held.
  bool listsSynthetic();
  std::optional<Error> problem();
  /// Why there is none of that type.
  Error noDevice(MediaType mediaType);
  std::shared_ptr<CaptureDevice> syntheticNamed(std::string_view name, MediaType mediaType) const;
  void windUp();

  const std::shared_ptr<DispatchQueue> queue_;

  std::mutex startMutex_;  // held while backends start and stop
  bool isStarted_ = false;
  Synthetic synthetic_ = Synthetic::always;
  std::unique_ptr<VirtualCaptureBackend> virtual_;
  std::vector<std::shared_ptr<CaptureBackend>> backends_;  // best first, without the virtual one

  mutable std::mutex mutex_;
  std::vector<std::shared_ptr<CaptureDevice>> devices_;  // in the order in which they were seen first
  bool accessWasAsked_ = false;
};

}  // namespace tavrel
