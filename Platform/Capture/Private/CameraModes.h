#pragma once

#include <algorithm>
#include <map>
#include <memory>
#include <optional>
#include <utility>
#include <vector>

#include "Platform/Capture/CaptureDeviceFormat.h"

namespace tavrel {

/// Sizes that a camera with any size is asked for.
inline constexpr CaptureVideoDimensions kUsualSizes[] = {{320, 240},  {640, 360},   {640, 480},   {800, 600},
                                                         {1280, 720}, {1920, 1080}, {2560, 1440}, {3840, 2160}};

/// All sizes between two, by steps from the least.
struct CaptureSizeRange {
  CaptureVideoDimensions least;
  CaptureVideoDimensions most;
  CaptureVideoDimensions step = {1, 1};

  /// The smallest that covers this one; nothing where none does.
  std::optional<CaptureVideoDimensions> covering(CaptureVideoDimensions wanted) const {
    const auto side = [](int wish, int first, int last, int stride) {
      const int steps = (std::max(wish, first) - first + stride - 1) / stride;
      const int found = first + steps * stride;
      return found <= last ? found : 0;
    };
    const CaptureVideoDimensions found = {side(wanted.width, least.width, most.width, step.width),
                                          side(wanted.height, least.height, most.height, step.height)};
    if (found.width == 0 || found.height == 0) return std::nullopt;
    return found;
  }
  CaptureVideoDimensions largest() const {
    const auto side = [](int first, int last, int stride) { return first + (last - first) / stride * stride; };
    return {side(least.width, most.width, step.width), side(least.height, most.height, step.height)};
  }
};

/// The range, as far as pictures are of a size to speak of (8192×4320); nothing where there is none in it.
inline std::optional<CaptureSizeRange> sizeRangeOf(CaptureVideoDimensions least, CaptureVideoDimensions most,
                                                   CaptureVideoDimensions step) {
  const auto atLeastOne = [](CaptureVideoDimensions size) {
    return CaptureVideoDimensions{std::max(size.width, 1), std::max(size.height, 1)};
  };
  constexpr CaptureVideoDimensions kLargest = {8192, 4320};
  const CaptureVideoDimensions end = {std::min(most.width, kLargest.width), std::min(most.height, kLargest.height)};
  const CaptureSizeRange range = {atLeastOne(least), end, atLeastOne(step)};
  return range.covering(range.least) ? std::optional(range) : std::nullopt;
}

/// Those of the usual sizes that are in the range.
inline std::vector<CaptureVideoDimensions> usualSizesIn(const CaptureSizeRange& range) {
  std::vector<CaptureVideoDimensions> sizes;
  for (const CaptureVideoDimensions usual : kUsualSizes) {
    if (range.covering(usual) == usual) sizes.push_back(usual);
  }
  return sizes;
}

/// Whether a mode has pictures of that size. `Mode::sizes` is the range of a mode that has one, whose largest size its
/// `dimensions` are.
template <typename Mode>
bool hasSize(const Mode& mode, CaptureVideoDimensions size) {
  return mode.dimensions == size || (mode.sizes && mode.sizes->covering(size) == size);
}

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

/// A format of the smallest size in a range of the modes that covers `wanted`; nullptr where none does.
template <typename Mode>
std::shared_ptr<const CaptureDeviceFormat> coveringFormat(const std::vector<Mode>& modes, CaptureVideoDimensions wanted,
                                                          double maxZoomFactor) {
  std::optional<CaptureVideoDimensions> best;
  for (const Mode& mode : modes) {
    const auto size = mode.sizes ? mode.sizes->covering(wanted) : std::nullopt;
    const auto area = [](CaptureVideoDimensions of) { return static_cast<long>(of.width) * of.height; };
    if (size && (!best || area(*size) < area(*best))) best = size;
  }
  if (!best) return nullptr;
  std::vector<Mode> having;
  for (const Mode& mode : modes) {
    if (!hasSize(mode, *best)) continue;
    having.push_back(mode);
    having.back().dimensions = *best;
  }
  return deviceFormatsOf(having, maxZoomFactor).front();
}

}  // namespace tavrel
