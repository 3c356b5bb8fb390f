#pragma once

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <memory>
#include <string_view>

#include "Support/CaptureTestSupport.h"
#include "Support/VirtualFrames.h"
#include "TavrelCaptureTesting.h"

namespace tavrel::test {

using Virtual = VirtualCaptureSystem;

/// The virtual cameras with nothing wrong, before and after each test.
class CaptureSessionTest : public ::testing::Test {
 protected:
  void SetUp() override { bench().reset(); }
  void TearDown() override {
    bench().reset();
    bench().removeFiles();
  }

  static Virtual& bench() { return Virtual::shared(); }
  static std::shared_ptr<CaptureDevice> device(std::string_view uniqueID) {
    return CaptureDevice::deviceWithUniqueID(uniqueID);
  }
  /// Time passes only when the test says so.
  std::shared_ptr<FastClock> useFastClock() {
    auto clock = std::make_shared<FastClock>();
    bench().setClock(clock);
    return clock;
  }
  static void run(const CameraBench& camera, FastClock& clock, double seconds) {
    ASSERT_TRUE(clock.runFor(seconds));
    // The last pictures are still on their way.
    camera.queue->sync([] {});
  }
  static int brightness(const FrameCollector& frames, int x = 4, int y = 120) {
    return VirtualPicture(frames.latest()->imageBuffer()).pixel(x, y)[1];
  }
};

}  // namespace tavrel::test
