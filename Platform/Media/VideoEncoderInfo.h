#pragma once

#include <string>

namespace tavrel {

/// An encoder of pictures that this machine has.
struct VideoEncoderInfo {
  std::string name;   ///< a value of `kVideoEncoderKey`, with its device's node where there may be several
  std::string codec;  ///< what it makes: a value of `kVideoCodecKey`
  bool isHardware = false;
};

}  // namespace tavrel
