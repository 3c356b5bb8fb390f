#include "Platform/Capture/CaptureDevice.h"

#include <gmock/gmock.h>

#include <filesystem>
#include <fstream>
#include <future>

#include "Platform/Capture/CaptureDeviceInput.h"
#include "Platform/Capture/CaptureError.h"
#include "Platform/Imaging/ImageDestination.h"
#include "Support/CaptureTestSupport.h"
#include "Support/VirtualFrames.h"
#include "TavrelCaptureTesting.h"

namespace tavrel::test {
namespace {

using Virtual = VirtualCaptureSystem;

class CaptureDeviceTest : public ::testing::Test {
 protected:
  void SetUp() override { Virtual::shared().reset(); }
  void TearDown() override {
    Virtual::shared().reset();
    Virtual::shared().removeFiles();
    std::filesystem::remove_all(folder_);
  }

  /// A plain red picture.
  std::filesystem::path redPicture() const {
    std::filesystem::create_directories(folder_);
    const auto path = folder_ / "red.png";
    Data pixels;
    for (int i = 0; i < 64 * 48; ++i) pixels.insert(pixels.end(), {0, 0, 255, 255});
    const auto image = Image::create(64, 48, 8, 32, 64 * 4, kBitmapOpaqueBGRX, DataProvider::create(std::move(pixels)));
    EXPECT_TRUE(ImageDestination::write(image, path).has_value());
    return path;
  }

  const std::filesystem::path folder_ =
      std::filesystem::temp_directory_path() / ("tavrel-capture-device-" + std::to_string(getpid()));
};

TEST_F(CaptureDeviceTest, ListsNamesAndFindsDevices) {
  const auto cameras = CaptureDevice::devicesWithMediaType(MediaType::video);
  ASSERT_EQ(cameras.size(), 2U);
  EXPECT_EQ(cameras[0]->position(), CaptureDevicePosition::back);
  EXPECT_EQ(cameras[1]->position(), CaptureDevicePosition::front);
  EXPECT_EQ(CaptureDevice::defaultDeviceWithMediaType(MediaType::video), cameras[0]);
  EXPECT_EQ(CaptureDevice::deviceWithUniqueID(cameras[1]->uniqueID()), cameras[1]);
  EXPECT_EQ(CaptureDevice::deviceWithUniqueID("nothing"), nullptr);
  EXPECT_EQ(CaptureDevice::deviceNamed("front", MediaType::video).value(), cameras[1]);
  EXPECT_EQ(CaptureDevice::deviceNamed("virtual BACK camera", MediaType::video).value(), cameras[0]);
  const auto missing = CaptureDevice::deviceNamed("kitchen", MediaType::video);
  ASSERT_FALSE(missing.has_value());
  EXPECT_THAT(missing.error().description, ::testing::HasSubstr("\"Virtual front camera\""));

  Virtual::shared().setPresent(Virtual::kFrontCamera, false);
  EXPECT_EQ(CaptureDevice::devicesWithMediaType(MediaType::video), std::vector{cameras[0]});
  Virtual::shared().setPresent(Virtual::kBackCamera, false);
  EXPECT_EQ(CaptureDevice::defaultDeviceWithMediaType(MediaType::video), nullptr);
}

TEST_F(CaptureDeviceTest, FilesAreDevicesThatComeLast) {
  const auto path = redPicture();
  const auto file = CaptureDevice::deviceNamed("file:" + path.string(), MediaType::video, CaptureDevicePosition::back);
  ASSERT_TRUE(file.has_value()) << file.error().description;
  EXPECT_EQ(CaptureDevice::devicesWithMediaType(MediaType::video).back(), *file);
  EXPECT_EQ(CaptureDevice::defaultDeviceWithMediaType(MediaType::video), *file);
  EXPECT_EQ((*file)->position(), CaptureDevicePosition::back);
  EXPECT_EQ(CaptureDevice::addFile(path, MediaType::video, CaptureDevicePosition::front).value(), *file);
  EXPECT_EQ((*file)->position(), CaptureDevicePosition::front);

  CameraBench camera(*file);
  camera.session->startRunning();
  ASSERT_TRUE(eventually([&] { return camera.frames->count() > 0; }));
  camera.session->stopRunning();
  const VirtualPicture picture(camera.frames->latest()->imageBuffer());
  EXPECT_GT(picture.pixel(100, 100)[2], 240);
  EXPECT_LT(picture.pixel(100, 100)[1], 16);

  EXPECT_FALSE(CaptureDevice::addFile(folder_ / "none.mov", MediaType::video).has_value());
  std::ofstream(folder_ / "text.wav") << "no sound";
  EXPECT_FALSE(CaptureDevice::addFile(folder_ / "text.wav", MediaType::audio).has_value());
}

TEST_F(CaptureDeviceTest, AccessIsGrantedOrRefused) {
  const auto ask = [] {
    auto answer = std::make_shared<std::promise<bool>>();
    CaptureDevice::requestAccess(MediaType::video, [answer](bool granted) { answer->set_value(granted); });
    return answer->get_future().get();
  };
  EXPECT_TRUE(ask());
  EXPECT_EQ(CaptureDevice::authorizationStatus(MediaType::video), CaptureAuthorizationStatus::authorized);
  Virtual::shared().setAccessGranted(false);
  EXPECT_FALSE(ask());
  EXPECT_EQ(CaptureDevice::authorizationStatus(MediaType::audio), CaptureAuthorizationStatus::denied);
}

TEST_F(CaptureDeviceTest, SettingsNeedTheLockAndSupport) {
  const auto camera = CaptureDevice::deviceWithUniqueID(Virtual::kBackCamera);
  EXPECT_DEATH(camera->setTorchMode(CaptureTorchMode::on), "setTorchMode needs lockForConfiguration");
  EXPECT_DEATH(camera->setActiveVideoMinFrameDuration(MediaTime::make(1, 30)), "needs lockForConfiguration");
  EXPECT_DEATH(camera->unlockForConfiguration(), "without lockForConfiguration");

  Virtual::shared().setLockError(Virtual::kBackCamera, makeError(CaptureErrorCode::busy, "another program holds it"));
  const auto locked = camera->lockForConfiguration();
  ASSERT_FALSE(locked.has_value());
  EXPECT_EQ(locked.error().description, "another program holds it");
  Virtual::shared().setLockError(Virtual::kBackCamera, std::nullopt);

  Virtual::Support support;
  support.torch = false;
  support.focusModes[1] = false;
  support.exposurePoint = false;
  Virtual::shared().setSupport(Virtual::kBackCamera, support);
  ASSERT_TRUE(camera->lockForConfiguration().has_value());
  EXPECT_DEATH(camera->setActiveFormat(std::make_shared<CaptureDeviceFormat>()), "does not offer");
  const CaptureFocusMode before = camera->focusMode();
  camera->setTorchMode(CaptureTorchMode::on);
  camera->setFocusMode(CaptureFocusMode::autoFocus);
  camera->setFocusMode(static_cast<CaptureFocusMode>(7));
  camera->setExposurePointOfInterest({0.1, 0.1});
  EXPECT_FALSE(camera->isTorchModeSupported(CaptureTorchMode::on));
  EXPECT_EQ(camera->torchMode(), CaptureTorchMode::off);
  EXPECT_FALSE(camera->isFocusModeSupported(CaptureFocusMode::autoFocus));
  EXPECT_EQ(camera->focusMode(), before);
  EXPECT_EQ(camera->exposurePointOfInterest(), (Point{0.5, 0.5}));
  camera->unlockForConfiguration();

  Virtual::shared().setInputError(Virtual::kFrontCamera,
                                  makeError(CaptureErrorCode::permissionDenied, "permission denied"));
  const auto front = CaptureDevice::deviceWithUniqueID(Virtual::kFrontCamera);
  EXPECT_EQ(CaptureDeviceInput::create(front).error().description, "permission denied");
  EXPECT_EQ(CaptureDeviceInput::create(nullptr).error(), CaptureErrorCode::noSuchDevice);
}

}  // namespace
}  // namespace tavrel::test
