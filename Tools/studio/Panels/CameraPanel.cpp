#include "Panels/CameraPanel.h"

#include <fmt/format.h>
#include <imgui.h>

#include <algorithm>
#include <set>

#include "Panels/Widgets.h"

namespace tavrel::studio {
namespace {

std::vector<std::string> namesOf(const std::vector<DeviceChoice>& devices) {
  std::vector<std::string> names;
  names.reserve(devices.size());
  for (const DeviceChoice& device : devices) names.push_back(device.name);
  return names;
}

int placeOf(const std::vector<DeviceChoice>& devices, const std::string& identity) {
  const auto found = std::ranges::find(devices, identity, &DeviceChoice::identity);
  return found == devices.end() ? -1 : static_cast<int>(found - devices.begin());
}

std::string sizeName(Size size) { return fmt::format("{:.0f}×{:.0f}", size.width, size.height); }

std::shared_ptr<CaptureDevice> deviceOf(const TavrelCamera& camera) {
  return CaptureDevice::deviceWithUniqueID(camera.deviceID());
}

/// Sizes that the device has, the smallest first; the usual ones when it does not say.
std::vector<Size> sizesOf(const CaptureDevice* device) {
  std::set<std::pair<int, int>> sizes;
  if (device) {
    for (const auto& format : device->formats()) sizes.emplace(format->dimensions.width, format->dimensions.height);
  }
  sizes.erase({0, 0});
  if (sizes.empty()) sizes = {{640, 360}, {640, 480}, {1280, 720}, {1920, 1080}};
  std::vector<Size> result;
  for (const auto& [width, height] : sizes) {
    // Movies have even sides.
    if (width % 2 == 0 && height % 2 == 0) result.push_back({static_cast<double>(width), static_cast<double>(height)});
  }
  return result;
}

}  // namespace

void CameraPanel::draw() {
  chooseDevices();
  showLevel();
  chooseFormat();
  ImGui::Separator();
  showControls();
  ImGui::Separator();
  showCameraForOthers();
}

void CameraPanel::chooseDevices() {
  const auto& recorder = studio_.recorder();
  const auto& cameras = studio_.devices().cameras();
  int camera = recorder ? placeOf(cameras, recorder->camera()->deviceID()) : -1;
  if (choice("Camera", namesOf(cameras), camera, "none")) {
    studio_.chooseCamera(cameras[static_cast<std::size_t>(camera)].identity);
  }
  const auto& microphones = studio_.devices().microphones();
  std::vector<std::string> names = {"none", "the system's"};
  for (const auto& name : namesOf(microphones)) names.push_back(name);
  const std::string& chosen = studio_.settings().microphone;
  constexpr int kBefore = 2;
  const int listed = placeOf(microphones, chosen);
  int microphone = chosen.empty() ? 0 : chosen == "default" ? 1 : listed < 0 ? -1 : kBefore + listed;
  if (choice("Microphone", names, microphone, "not connected")) {
    studio_.chooseMicrophone(microphone == 0   ? ""
                             : microphone == 1 ? "default"
                                               : microphones[static_cast<std::size_t>(microphone - kBefore)].identity);
  }
}

void CameraPanel::showLevel() const {
  const auto microphone = studio_.recorder() ? studio_.recorder()->microphone() : nullptr;
  if (!microphone) return ImGui::TextDisabled("There is no sound.");
  constexpr float kQuietest = -60;
  const float decibels = std::clamp(microphone->averagePowerLevel(), kQuietest, 0.0F);
  const float share = microphone->mute() ? 0 : 1 - decibels / kQuietest;
  const ImVec4 colour = decibels > -3 ? ImVec4(0.9F, 0.25F, 0.2F, 1) : ImVec4(0.3F, 0.75F, 0.4F, 1);
  ImGui::PushStyleColor(ImGuiCol_PlotHistogram, colour);
  ImGui::ProgressBar(share, ImVec2(-ImGui::GetFontSize() * 6.5F, ImGui::GetFontSize() * 0.5F), "");
  ImGui::PopStyleColor();
  WidgetMap::shared().noteLast("Level");
  ImGui::SameLine(0, ImGui::GetStyle().ItemInnerSpacing.x);
  bool isMuted = microphone->mute();
  if (checkbox("Mute", isMuted)) microphone->setMute(isMuted);
}

void CameraPanel::chooseFormat() {
  const auto& recorder = studio_.recorder();
  const auto device = recorder ? deviceOf(*recorder->camera()) : nullptr;
  const std::vector<Size> sizes = sizesOf(device.get());
  std::vector<std::string> names;
  names.reserve(sizes.size());
  for (const Size size : sizes) names.push_back(sizeName(size));
  const Settings& settings = studio_.settings();
  auto current = static_cast<int>(std::ranges::find(sizes, settings.size) - sizes.begin());
  if (choice("Size", names, current, sizeName(settings.size))) {
    studio_.setFormat(sizes[static_cast<std::size_t>(current)], settings.framesPerSecond);
  }
  constexpr double kRates[] = {5, 10, 15, 20, 24, 25, 30, 50, 60};
  double most = 60;
  if (recorder && recorder->camera()->maxFrameRate() >= 1) most = recorder->camera()->maxFrameRate();
  std::vector<double> rates;
  for (const double rate : kRates) {
    if (rate <= most + 0.5) rates.push_back(rate);
  }
  names.clear();
  for (const double rate : rates) names.push_back(fmt::format("{:.0f} a second", rate));
  auto rate = static_cast<int>(std::ranges::find(rates, settings.framesPerSecond) - rates.begin());
  if (choice("Frames", names, rate, fmt::format("{:.2f} a second", settings.framesPerSecond))) {
    studio_.setFormat(settings.size, rates[static_cast<std::size_t>(rate)]);
  }
}

void CameraPanel::showControls() {
  if (!studio_.recorder()) return;
  TavrelCamera& camera = *studio_.recorder()->camera();
  const auto device = deviceOf(camera);
  if (!device) return;
  if (const double most = camera.videoMaxZoomFactor(); most > 1) {
    double zoom = camera.videoZoomFactor();
    if (slider("Zoom", zoom, 1, most, "%.1f")) camera.setPreferredVideoZoomFactor(zoom);
  }
  const bool focuses = device->isFocusModeSupported(CaptureFocusMode::continuousAutoFocus);
  if (focuses) {
    bool isAutomatic = camera.preferredContinuousAutoFocusEnable();
    if (checkbox("Focus follows", isAutomatic)) camera.setPreferredContinuousAutoFocusEnable(isAutomatic);
  }
  if (device->isExposureModeSupported(CaptureExposureMode::continuousAutoExposure)) {
    if (focuses) ImGui::SameLine();
    bool isAutomatic = camera.preferredContinuousAutoExposureEnable();
    if (checkbox("Exposure follows", isAutomatic)) camera.setPreferredContinuousAutoExposureEnable(isAutomatic);
  }
  if (device->isTorchModeSupported(CaptureTorchMode::on)) {
    bool isOn = camera.preferredTorchMode() == CaptureTorchMode::on;
    if (checkbox("Torch", isOn)) studio_.toggleTorch();
    ImGui::SameLine();
  }
  checkbox("Mirror in this window", studio_.settings().mirrors);
  if (device->isFocusPointOfInterestSupported()) ImGui::TextDisabled("A click on the picture focuses there.");
}

void CameraPanel::showCameraForOthers() {
  CameraForOthers& output = studio_.cameraForOthers();
  bool isOn = output.isOn();
  if (checkbox("Be a camera for other programs", isOn)) studio_.setCameraForOthers(isOn);
  if (output.isOn()) {
    ImGui::TextWrapped("They list it as \"%s\"; %s.", output.name().c_str(), output.readersText().c_str());
  } else {
    textField("Its name", studio_.settings().cameraName);
  }
}

}  // namespace tavrel::studio
