#include "Model/DeviceList.h"

#include <fmt/format.h>

#include <algorithm>

namespace tavrel::studio {
namespace {

std::vector<DeviceChoice> choices(MediaType type) {
  std::vector<DeviceChoice> result;
  for (const auto& device : CaptureDevice::devicesWithMediaType(type)) {
    if (type == MediaType::video && device->isLoopback()) continue;  // the studio's own camera
    result.push_back({device->uniqueID(), device->localizedName()});
  }
  // Two of one name are told apart by what identifies them.
  const auto all = result;
  for (DeviceChoice& each : result) {
    const auto isAlike = [&](const DeviceChoice& other) { return other.name == each.name; };
    if (std::count_if(all.begin(), all.end(), isAlike) > 1) each.name += fmt::format(" ({})", each.identity);
  }
  return result;
}

}  // namespace

DeviceList::DeviceList() {
  for (const char* name : {kCaptureDeviceWasConnectedNotification, kCaptureDeviceWasDisconnectedNotification}) {
    observers_.push_back(NotificationCenter::defaultCenter().addObserver(
        name, [isOutdated = isOutdated_](std::string_view, const void*) { *isOutdated = true; }));
  }
}

DeviceList::~DeviceList() {
  for (const auto observer : observers_) NotificationCenter::defaultCenter().removeObserver(observer);
}

const std::vector<DeviceChoice>& DeviceList::cameras() {
  refresh();
  return cameras_;
}

const std::vector<DeviceChoice>& DeviceList::microphones() {
  refresh();
  return microphones_;
}

void DeviceList::refresh() {
  if (!isOutdated_->exchange(false)) return;
  cameras_ = choices(MediaType::video);
  microphones_ = choices(MediaType::audio);
}

}  // namespace tavrel::studio
