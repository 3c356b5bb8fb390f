#include <gtest/gtest.h>

#include <atomic>
#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <future>
#include <string>

#include "Platform/Capture/CaptureError.h"
#include "Platform/Capture/Private/CaptureSystem.h"
#include "Support/CapturePeers.h"
#include "Support/CaptureTestSupport.h"

namespace tavrel::test {
namespace {

using namespace std::chrono_literals;

/// A desktop of the test's own: a bus, PipeWire, and the real portal with its store of answers, which the bus starts
/// when it is asked. Its dialog is one that never appears.
class CameraPortalTest : public ::testing::Test {
 protected:
  void SetUp() override {
    const std::string folder = service_.folder().string();
    std::ofstream(folder + "/test.portal") << "[portal]\nDBusName=org.freedesktop.impl.portal.desktop.test\n"
                                              "Interfaces=org.freedesktop.impl.portal.Access\nUseIn=test\n";
    setenv("XDG_CURRENT_DESKTOP", "test", 1);
    setenv("XDG_DESKTOP_PORTAL_DIR", folder.c_str(), 1);
    ASSERT_TRUE(service_.start()) << "no service: see service.log";
    setenv("TAVREL_CAPTURE", "portal", 1);
  }
  void TearDown() override {
    setenv("TAVREL_CAPTURE", "virtual", 1);
    CaptureSystem::shared().restart();
    unsetenv("DBUS_SESSION_BUS_ADDRESS");
  }

  void useServicesBus() const {
    std::string address;
    std::getline(std::ifstream(service_.folder() / "bus-address"), address);
    setenv("DBUS_SESSION_BUS_ADDRESS", address.c_str(), 1);
  }
  /// A bus with nobody on it.
  void startEmptyBus() {
    const std::string folder = service_.folder().string();
    const std::string address = "unix:path=" + folder + "/empty-bus";
    setenv("DBUS_SESSION_BUS_ADDRESS", address.c_str(), 1);
    std::ofstream(folder + "/bus.conf") << "<busconfig><listen>" << address
                                        << "</listen><policy context='default'><allow send_destination='*' "
                                           "eavesdrop='true'/><allow eavesdrop='true'/><allow own='*'/></policy>"
                                           "</busconfig>";
    bus_ = std::make_unique<PeerProcess>("exec dbus-daemon --nofork --config-file=" + folder + "/bus.conf");
    ASSERT_TRUE(eventually([&] { return std::filesystem::exists(folder + "/empty-bus"); }));
  }
  /// What the person answered before: "yes", "no" or "ask".
  static void remember(const std::string& answer) {
    ASSERT_TRUE(
        runCommand("gdbus call --session --dest org.freedesktop.impl.portal.PermissionStore --object-path "
                   "/org/freedesktop/impl/portal/PermissionStore --method "
                   "org.freedesktop.impl.portal.PermissionStore.SetPermission devices true camera \"\" "
                   "\"[\\\"" +
                   answer + "\\\"]\""));
  }
  static CaptureAuthorizationStatus statusAfterRequest() {
    std::promise<bool> answered;
    CaptureDevice::requestAccess(MediaType::video, [&](bool isGranted) { answered.set_value(isGranted); });
    const bool isGranted = answered.get_future().get();
    const auto status = CaptureDevice::authorizationStatus(MediaType::video);
    EXPECT_EQ(isGranted, status == CaptureAuthorizationStatus::authorized);
    return status;
  }
  static std::int64_t codeWithoutCamera() {
    const auto device = CaptureDevice::deviceNamed("default", MediaType::video);
    return device ? 0 : device.error().code;
  }

  PipeWireService service_;
  std::unique_ptr<PeerProcess> bus_;
};

TEST_F(CameraPortalTest, WithoutAPortalCamerasAreOutOfReachAndThatIsSaid) {
  startEmptyBus();
  CaptureSystem::shared().restart();
  EXPECT_EQ(statusAfterRequest(), CaptureAuthorizationStatus::restricted);
  EXPECT_EQ(codeWithoutCamera(), static_cast<std::int64_t>(CaptureErrorCode::noPortal));
  EXPECT_FALSE(CaptureDevice::hasStandIns());
}

TEST_F(CameraPortalTest, APersonsAnswerDecides) {
  const auto peer = service_.startCamera("cam", "format=YUY2,width=64,height=48,framerate=30/1");
  useServicesBus();
  remember("no");
  CaptureSystem::shared().restart();
  EXPECT_EQ(statusAfterRequest(), CaptureAuthorizationStatus::denied);
  EXPECT_EQ(codeWithoutCamera(), static_cast<std::int64_t>(CaptureErrorCode::permissionDenied));

  remember("yes");
  CaptureSystem::shared().restart();
  EXPECT_EQ(statusAfterRequest(), CaptureAuthorizationStatus::authorized);
  ASSERT_TRUE(eventually([] { return CaptureDevice::defaultDeviceWithMediaType(MediaType::video) != nullptr; }));
  const auto device = CaptureDevice::defaultDeviceWithMediaType(MediaType::video);
  EXPECT_EQ(device->backendName(), "portal");
  CameraBench camera(device);
  camera.session->startRunning();
  EXPECT_TRUE(eventually([&] { return camera.frames->count() >= 3; }));
  camera.session->stopRunning();
}

}  // namespace
}  // namespace tavrel::test
