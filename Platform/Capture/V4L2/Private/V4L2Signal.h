#pragma once

#include <linux/videodev2.h>

#include <optional>
#include <string>
#include <vector>

#include "Platform/Capture/V4L2/Private/V4L2Probe.h"

namespace tavrel {

/// What the input of a node receives.
struct V4L2Signal {
  /// Of a digital source, which chooses them.
  std::optional<CaptureVideoDimensions> dimensions;
  double framesPerSecond = 0;  ///< 0 where the source does not choose it
};

/// Pictures a second of a digital source; 0 when it does not say.
double rateOfTimings(const v4l2_dv_timings& timings);

/// Turns an open node, which does not stream, to an input that receives something: the present one if it does, else the
/// first; and to the size and rate of a digital source. Fails with `deviceSilent` when there is no signal, and leaves
/// the present input then. `camera` is how the message calls it.
Expected<V4L2Signal> findSignal(const V4L2Descriptor& node, const std::vector<V4L2Input>& inputs,
                                const std::string& camera);

}  // namespace tavrel
