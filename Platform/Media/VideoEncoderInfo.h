#pragma once

#include <string>

namespace tavrel {

/// A video encoder of this machine.
struct VideoEncoderInfo {
  std::string name;   ///< a value of `kVideoEncoderKey`, with the device's node if there may be several
  std::string codec;  ///< a value of `kVideoCodecKey`
  bool isHardware = false;
};

}  // namespace tavrel
