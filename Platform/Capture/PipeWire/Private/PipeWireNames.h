#pragma once

#include <spa/pod/pod.h>

#include <cstdint>
#include <map>
#include <string>

#include "Platform/Capture/CaptureDevice.h"

namespace tavrel {

/// What a node says about itself.
using PipeWireProperties = std::map<std::string, std::string>;

/// The names of a video format and of a kind of memory, as PipeWire has them: "YUY2", "MemFd".
std::string pipeWireFormatName(const spa_pod& parameter);
std::string pipeWireMemoryName(std::uint32_t dataType);

/// Position and rotation as the node's properties tell.
CaptureDevicePosition positionOf(const PipeWireProperties& properties);
int mountRotationOf(const PipeWireProperties& properties);
std::string valueOf(const PipeWireProperties& properties, const char* key);

}  // namespace tavrel
