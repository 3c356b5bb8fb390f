#pragma once

#include <string>

#include "Platform/Capture/CaptureDeviceFormat.h"
#include "Platform/Foundation/Export.h"

namespace tavrel {

/// What an open device really delivers, which may be less than was wished for.
struct TAVREL_API CaptureDelivery {
  std::string format = {};  ///< as the device names it, such as "YUYV"
  CaptureVideoDimensions dimensions = {};
  double framesPerSecond = 0;
  std::string memory = {};  ///< where its pictures lie, such as "mmap" or "MemFd"; empty before the first one
  bool isInPlace = false;   ///< whether the GPU reads pictures where the device wrote them, without a copy
  /// Whether the device says by the monotonic clock when it captured, so that its latency is known.
  bool isStamped = false;
  std::string loss = {};  ///< why a picture was lost, the latest time; empty if none was

  /// "YUYV 640x480, 30 frames a second, mmap buffers", or "… DmaBuf buffers, imported".
  std::string description() const;
};

}  // namespace tavrel
