#pragma once

#include <gtest/gtest.h>

#include <cstdlib>
#include <memory>
#include <stdexcept>
#include <string>

#include "Platform/Capture/CaptureDevice.h"
#include "Platform/Capture/Private/CaptureSystem.h"
#include "Support/CapturePeers.h"
#include "Support/CaptureTestSupport.h"

namespace tavrel::test {

/// The library beside a real daemon.
class PipeWireServiceTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_TRUE(service_.start()) << "no service: see service.log"; }
  void TearDown() override {
    setenv("TAVREL_CAPTURE", "virtual", 1);
    CaptureSystem::shared().restart();
  }

  static void connect() {
    setenv("TAVREL_CAPTURE", "pipewire", 1);
    CaptureSystem::shared().restart();
  }
  static std::shared_ptr<CaptureDevice> device(const std::string& uniqueID) {
    return CaptureDevice::deviceWithUniqueID(uniqueID);
  }
  /// Waits for a device to come.
  static std::shared_ptr<CaptureDevice> awaited(const std::string& uniqueID) {
    const bool hasCome = eventually([&] { return device(uniqueID) && device(uniqueID)->isConnected(); });
    if (!hasCome) throw std::runtime_error(uniqueID + " has not come");
    return device(uniqueID);
  }

  PipeWireService service_;
};

}  // namespace tavrel::test
