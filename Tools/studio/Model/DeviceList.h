#pragma once

#include <atomic>
#include <memory>
#include <string>
#include <vector>

#include "TavrelCaptureBase.h"

namespace tavrel::studio {

/// A camera or microphone to choose.
struct DeviceChoice {
  std::string identity;  ///< `CaptureDevice::uniqueID`
  std::string name;
};

/// The cameras and microphones that are connected, as they come and go. Main thread.
class DeviceList {
 public:
  DeviceList();
  DeviceList(const DeviceList&) = delete;
  DeviceList& operator=(const DeviceList&) = delete;
  ~DeviceList();

  const std::vector<DeviceChoice>& cameras();
  const std::vector<DeviceChoice>& microphones();

 private:
  void refresh();

  /// Shared with callbacks on other threads, which may outlive this.
  const std::shared_ptr<std::atomic<bool>> isOutdated_ = std::make_shared<std::atomic<bool>>(true);
  std::vector<NotificationCenter::ObserverToken> observers_;
  std::vector<DeviceChoice> cameras_;
  std::vector<DeviceChoice> microphones_;
};

}  // namespace tavrel::studio
