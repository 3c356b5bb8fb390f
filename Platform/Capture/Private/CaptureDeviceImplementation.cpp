#include <fmt/format.h>

#include <algorithm>
#include <charconv>
#include <cmath>
#include <cstdlib>
#include <optional>
#include <utility>

#include "Platform/Capture/CaptureError.h"
#include "Platform/Capture/CaptureSession.h"
#include "Platform/Capture/Private/CaptureDeviceImplementation.h"
#include "Platform/Capture/Private/FrameRates.h"
#include "Platform/Foundation/FatalAssertion.h"

namespace tavrel {
namespace {

struct NamedPreset {
  std::string_view name;
  CaptureVideoDimensions dimensions;
};

constexpr NamedPreset kNamedPresets[] = {
    {kCaptureSessionPresetPhoto, {0, 0}},
    {kCaptureSessionPresetHigh, {1280, 720}},
    {kCaptureSessionPresetMedium, {640, 480}},
    {kCaptureSessionPresetLow, {320, 240}},
};

constexpr int kSmallestSide = 16;
constexpr int kLargestSide = 16384;

std::optional<int> sideOf(std::string_view digits) {
  int side = 0;
  const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), side);
  if (error != std::errc() || end != digits.data() + digits.size()) return std::nullopt;
  if (side < kSmallestSide || side > kLargestSide) return std::nullopt;
  return side;
}

long areaOf(CaptureVideoDimensions dimensions) { return static_cast<long>(dimensions.width) * dimensions.height; }

double inUnit(double value) { return std::fmin(1, std::fmax(0, value)); }

}  // namespace

std::optional<CaptureVideoDimensions> dimensionsOfPreset(std::string_view preset) {
  for (const NamedPreset& named : kNamedPresets) {
    if (named.name == preset) return named.dimensions;
  }
  const std::size_t cross = preset.find('x');
  if (cross == std::string_view::npos) return std::nullopt;
  const auto width = sideOf(preset.substr(0, cross));
  const auto height = sideOf(preset.substr(cross + 1));
  if (!width || !height) return std::nullopt;
  return CaptureVideoDimensions{*width, *height};
}

CaptureDevice::Implementation::Implementation(std::shared_ptr<CaptureDriver> usedDriver,
                                              CaptureDevicePosition usedPosition)
    : uniqueID(usedDriver->description().uniqueID),
      localizedName(usedDriver->description().localizedName),
      backendName(usedDriver->description().backendName),
      mediaType(usedDriver->description().mediaType),
      position(usedPosition),
      driver(std::move(usedDriver)),
      formats(driver->description().formats) {
  resetSettings();
}

Expected<void> CaptureDevice::Implementation::checkConnected() const {
  if (isConnected) return {};
  return failure(CaptureErrorCode::notConnected, fmt::format("{} is not connected; plug it in again", localizedName));
}

bool CaptureDevice::Implementation::offers(std::array<bool, 3> CaptureCapabilities::*modes, std::size_t mode) const {
  const auto offered = driver->capabilities().*modes;
  return mode < offered.size() && offered[mode];
}

bool CaptureDevice::Implementation::supports(bool CaptureCapabilities::*feature) const {
  const std::lock_guard lock(mutex);
  return driver->capabilities().*feature;
}

std::unique_lock<std::mutex> CaptureDevice::Implementation::lockToSet(std::string_view setter) const {
  std::unique_lock lock(mutex);
  if (lockCount == 0) fatalAssertion("{} needs lockForConfiguration on {}", setter, localizedName);
  return lock;
}

void CaptureDevice::Implementation::set(std::string_view setter, Point CaptureControls::*control,
                                        bool CaptureCapabilities::*feature, Point point) {
  const auto lock = lockToSet(setter);
  if (driver->capabilities().*feature) controls.*control = {inUnit(point.x), inUnit(point.y)};
}

void CaptureDevice::Implementation::set(std::string_view setter, MediaTime Implementation::*member,
                                        MediaTime duration) {
  const auto lock = lockToSet(setter);
  const auto& ranges = activeFormat->videoSupportedFrameRateRanges;
  const bool isUsable = duration.isNumeric() && duration.value > 0;
  this->*member = isUsable ? nearestFrameDuration(ranges, duration) : defaultFrameDuration(ranges);
  if (member == &Implementation::minFrameDuration) driver->setFrameRate(frameRate());
}

void CaptureDevice::Implementation::resetSettings() {
  const CaptureCapabilities capabilities = driver->capabilities();
  controls = {};
  if (!capabilities.focusModes[2]) controls.focusMode = CaptureFocusMode::locked;
  if (!capabilities.exposureModes[2]) controls.exposureMode = CaptureExposureMode::locked;
  useFormat(nearestFormat({1280, 720}));
}

void CaptureDevice::Implementation::useFormat(std::shared_ptr<const CaptureDeviceFormat> format) {
  activeFormat = std::move(format);
  minFrameDuration = maxFrameDuration = defaultFrameDuration(activeFormat->videoSupportedFrameRateRanges);
  setZoom(std::clamp(controls.zoomFactor, 1.0, std::max(1.0, activeFormat->videoMaxZoomFactor)));
}

void CaptureDevice::Implementation::setZoom(double factor) {
  controls.zoomFactor = factor;
  digitalZoom = driver->capabilities().zoom ? 1 : factor;
}

void CaptureDevice::Implementation::replaceDriver(std::shared_ptr<CaptureDriver> newDriver) {
  driver = std::move(newDriver);
  setZoom(controls.zoomFactor);
  const auto& offered = driver->description().formats;
  if (offered == formats) return;
  formats = offered;
  const MediaTime shortest = minFrameDuration;
  const MediaTime longest = maxFrameDuration;
  useFormat(nearestFormat(activeFormat->dimensions));
  const auto& ranges = activeFormat->videoSupportedFrameRateRanges;
  minFrameDuration = nearestFrameDuration(ranges, shortest);
  maxFrameDuration = nearestFrameDuration(ranges, longest);
}

double CaptureDevice::Implementation::frameRate() const {
  return nearestFrameRate(activeFormat->videoSupportedFrameRateRanges, frameRateOf(minFrameDuration));
}

std::shared_ptr<const CaptureDeviceFormat> CaptureDevice::Implementation::nearestFormat(
    CaptureVideoDimensions wanted) const {
  // The same size, else the smallest that covers it, else the one whose area is nearest; of equal ones the first.
  const auto badness = [&](const std::shared_ptr<const CaptureDeviceFormat>& format) {
    const CaptureVideoDimensions size = format->dimensions;
    const bool covers = size.width >= wanted.width && size.height >= wanted.height;
    return std::pair(size == wanted ? 0 : covers ? 1 : 2, std::labs(areaOf(size) - areaOf(wanted)));
  };
  return *std::min_element(formats.begin(), formats.end(),
                           [&](const auto& left, const auto& right) { return badness(left) < badness(right); });
}

std::shared_ptr<const CaptureDeviceFormat> CaptureDevice::Implementation::formatForPreset(std::string_view preset,
                                                                                          bool exactly) {
  const auto wanted = dimensionsOfPreset(preset);
  if (!wanted) return nullptr;
  if (*wanted == CaptureVideoDimensions{}) {
    return *std::max_element(formats.begin(), formats.end(), [](const auto& left, const auto& right) {
      return areaOf(left->dimensions) < areaOf(right->dimensions);
    });
  }
  auto nearest = nearestFormat(*wanted);
  const bool isNamed = preset.find('x') == std::string_view::npos;
  if (nearest->dimensions == *wanted || isNamed) return nearest;
  if (auto made = driver->formatOfSize(*wanted)) {
    formats.push_back(made);
    return made;
  }
  return exactly ? nullptr : nearest;
}

}  // namespace tavrel
