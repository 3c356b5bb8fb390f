#pragma once

#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string_view>
#include <vector>

#include "Platform/Capture/CaptureOutput.h"
#include "Platform/Capture/Private/CaptureBackend.h"
#include "Platform/Capture/Virtual/Private/VirtualDriver.h"

namespace tavrel {

/// The virtual devices, and what goes wrong on demand.
class VirtualCaptureBackend : public CaptureBackend {
 public:
  VirtualCaptureBackend();
  ~VirtualCaptureBackend() override;

  const char* name() const override { return "virtual"; }
  void start(CaptureBackendObserver& observer) override;
  void stop() override;
  CaptureAuthorizationStatus authorizationStatus(MediaType mediaType) override;

  Expected<std::shared_ptr<CaptureDriver>> makeFileDriver(const std::filesystem::path& path, MediaType mediaType,
                                                          CaptureDevicePosition position) const;

  /// The device of that name; a name that no virtual device has stops the program.
  std::shared_ptr<VirtualDriver> driver(std::string_view uniqueID) const;
  const std::vector<std::shared_ptr<VirtualDriver>>& drivers() const { return drivers_; }
  void setConnected(std::string_view uniqueID, bool connected);

  void setAccessGranted(bool granted) { isAccessGranted_ = granted; }

  /// What sessions on virtual devices are refused.
  struct Refusals {
    std::function<bool(const CaptureDevice&)> input;
    std::function<bool(const CaptureOutput&)> output;
    std::optional<Error> stillImage;
  };
  template <typename Value>
  void refuse(Value Refusals::*what, Value value) {
    const std::lock_guard lock(mutex_);
    refusals_.*what = std::move(value);
  }
  Refusals refusals() const {
    const std::lock_guard lock(mutex_);
    return refusals_;
  }

 private:
  std::vector<std::shared_ptr<VirtualDriver>> drivers_;
  std::atomic<bool> isAccessGranted_ = true;
  mutable std::mutex mutex_;
  CaptureBackendObserver* observer_ = nullptr;
  Refusals refusals_;
};

}  // namespace tavrel
