#pragma once

#include <algorithm>
#include <map>
#include <memory>
#include <utility>
#include <vector>

#include "Platform/Capture/CaptureDeviceFormat.h"

namespace tavrel {

/// Sizes that a camera with any size is asked for.
inline constexpr CaptureVideoDimensions kUsualSizes[] = {{320, 240},  {640, 360},   {640, 480},   {800, 600},
                                                         {1280, 720}, {1920, 1080}, {2560, 1440}, {3840, 2160}};

/// How far pictures are enlarged of cameras that cannot zoom.
inline constexpr double kLargestDigitalZoom = 4;

/// One device format for each size among `modes`, with the frame rates of all modes of that size.
/// `maxZoomFactor` is the device's own.
template <typename Mode>
std::vector<std::shared_ptr<const CaptureDeviceFormat>> deviceFormatsOf(const std::vector<Mode>& modes,
                                                                        double maxZoomFactor = 1) {
  std::map<std::pair<int, int>, std::vector<CaptureFrameRateRange>> bySize;
  for (const Mode& mode : modes) {
    auto& rates = bySize[{mode.dimensions.width, mode.dimensions.height}];
    rates.insert(rates.end(), mode.rates.begin(), mode.rates.end());
  }
  std::vector<std::shared_ptr<const CaptureDeviceFormat>> formats;
  for (auto& [size, rates] : bySize) {
    std::sort(rates.begin(), rates.end(), [](const auto& left, const auto& right) {
      return std::pair(left.minFrameRate, left.maxFrameRate) < std::pair(right.minFrameRate, right.maxFrameRate);
    });
    rates.erase(std::unique(rates.begin(), rates.end()), rates.end());
    auto format = std::make_shared<CaptureDeviceFormat>();
    format->dimensions = {size.first, size.second};
    format->videoSupportedFrameRateRanges = rates;
    format->videoMaxZoomFactor = maxZoomFactor > 1 ? maxZoomFactor : kLargestDigitalZoom;
    formats.push_back(std::move(format));
  }
  return formats;
}

}  // namespace tavrel
