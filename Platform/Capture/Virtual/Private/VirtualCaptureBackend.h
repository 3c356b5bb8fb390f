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
  void setRefusals(std::optional<std::function<bool(const CaptureDevice&)>> input,
                   std::optional<std::function<bool(const CaptureOutput&)>> output);
  bool refusesInput(const CaptureDevice& device) const;
  bool refusesOutput(const CaptureOutput& output) const;
  void setStillImageError(std::optional<Error> error);
  std::optional<Error> stillImageError() const;

 private:
  std::vector<std::shared_ptr<VirtualDriver>> drivers_;
  std::atomic<bool> isAccessGranted_ = true;
  mutable std::mutex mutex_;
  CaptureBackendObserver* observer_ = nullptr;
  std::function<bool(const CaptureDevice&)> refusesInput_;
  std::function<bool(const CaptureOutput&)> refusesOutput_;
  std::optional<Error> stillImageError_;
};

}  // namespace tavrel
