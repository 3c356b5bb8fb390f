#pragma once

#include <optional>
#include <string>

#include "Platform/Foundation/Dictionary.h"
#include "Platform/Foundation/Error.h"

namespace tavrel {

/// A video track's settings, checked.
struct VideoSettings {
  bool isHEVC = false;
  int width = 0;  ///< encoded, even
  int height = 0;
  std::optional<std::int64_t> averageBitRate;
  double quality = 0.75;
  std::optional<int> maxKeyFrameInterval;
  std::string preset;  ///< empty: chosen by the mode

  static Expected<VideoSettings> parse(const Dictionary& settings);
};

}  // namespace tavrel
