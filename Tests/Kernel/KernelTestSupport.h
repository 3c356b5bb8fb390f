#pragma once

#include <fcntl.h>
#include <fmt/format.h>
#include <gmock/gmock.h>
#include <linux/videodev2.h>
#include <sys/ioctl.h>
#include <unistd.h>

#include <stdexcept>
#include <string>

#include "Platform/Capture/Private/CaptureDriver.h"
#include "Platform/Capture/Private/CaptureSystem.h"
#include "Platform/Foundation/Notifications.h"
#include "Support/CameraMatrix.h"
#include "Support/CaptureTestSupport.h"
#include "Support/VirtualFrames.h"

namespace tavrel::test {

/// Sets a control of a video node's driver, by the name that it shows; buttons are pressed.
inline void setNodeControl(const std::string& path, const std::string& name, int value = 1) {
  const int node = open(path.c_str(), O_RDWR | O_CLOEXEC);
  v4l2_queryctrl query{};
  query.id = V4L2_CTRL_FLAG_NEXT_CTRL;
  bool isSet = false;
  for (; !isSet && ioctl(node, VIDIOC_QUERYCTRL, &query) == 0; query.id |= V4L2_CTRL_FLAG_NEXT_CTRL) {
    if (name != reinterpret_cast<const char*>(query.name)) continue;
    v4l2_control control = {query.id, value};
    isSet = ioctl(node, VIDIOC_S_CTRL, &control) == 0;
  }
  close(node);
  if (!isSet) throw std::runtime_error(path + " has no control " + name + " that takes " + std::to_string(value));
}

/// Keeps what a driver captures.
class KeepingSink : public CaptureSink {
 public:
  void didCapture(std::shared_ptr<SampleBuffer> sample) override {
    const std::lock_guard lock(mutex_);
    latest_ = std::move(sample);
    ++count_;
  }
  void didDrop(const SampleTiming&) override { ++drops; }
  void didFail(Error error) override {
    const std::lock_guard lock(mutex_);
    error_ = std::move(error);
  }
  int count() const {
    const std::lock_guard lock(mutex_);
    return count_;
  }
  std::shared_ptr<SampleBuffer> latest() const {
    const std::lock_guard lock(mutex_);
    return latest_;
  }
  std::optional<Error> error() const {
    const std::lock_guard lock(mutex_);
    return error_;
  }
  std::atomic<int> drops = 0;

 private:
  mutable std::mutex mutex_;
  std::shared_ptr<SampleBuffer> latest_;
  std::optional<Error> error_;
  int count_ = 0;
};

/// The library on the kernel's devices, reached by `backend`.
class KernelTest : public ::testing::Test {
 protected:
  static void use(const char* backend) {
    setenv("TAVREL_CAPTURE", backend, 1);
    CaptureSystem::shared().restart();
  }
  static bool delivers(const CameraBench& camera, std::size_t count = 3) {
    camera.queue->sync([&] { camera.frames->clear(); });
    return eventually([&] { return camera.frames->count() >= count; });
  }
  /// A camera whose identity has this text, once it is there.
  static std::shared_ptr<CaptureDevice> awaited(const std::string& text) {
    std::shared_ptr<CaptureDevice> found;
    const bool hasCome = eventually([&] {
      for (const MediaType mediaType : {MediaType::video, MediaType::audio}) {
        for (const auto& device : CaptureDevice::devicesWithMediaType(mediaType)) {
          if (device->uniqueID().find(text) != std::string::npos && device->isConnected()) found = device;
        }
      }
      return found != nullptr;
    });
    if (!hasCome) throw std::runtime_error("no device with " + text + " has come");
    return found;
  }
};

}  // namespace tavrel::test
