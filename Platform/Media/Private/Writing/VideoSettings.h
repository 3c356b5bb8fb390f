#pragma once

#include <optional>
#include <string>

#include "Platform/Foundation/Dictionary.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Media/Private/FFmpegHandles.h"

namespace tavrel {

/// How a picture of another shape gets the encoded size.
enum class ScalingMode { stretch, fit, fill };

/// A video track's settings, checked.
struct VideoSettings {
  AVCodecID codec = AV_CODEC_ID_H264;
  int width = 0;  ///< encoded, even
  int height = 0;
  std::optional<std::int64_t> averageBitRate;
  double quality = 0.75;
  std::optional<int> maxKeyFrameInterval;
  std::string preset;       ///< empty: chosen by the mode
  std::string encoder;      ///< empty: any that works
  std::string encoderNode;  ///< empty: any
  std::optional<double> frameRate;
  AVRational pixelAspect{1, 1};
  ScalingMode scalingMode = ScalingMode::stretch;

  static Expected<VideoSettings> parse(const Dictionary& settings);
  /// The coding as a value of `kVideoCodecKey`.
  std::string codecName() const;
};

}  // namespace tavrel
