#pragma once

#include <cstdint>
#include <string>
#include <vector>

#include "Platform/Capture/PipeWire/Private/PipeWireFormats.h"
#include "Platform/Capture/PipeWire/Private/PipeWireNames.h"
#include "Platform/Capture/Private/CaptureDriver.h"

namespace tavrel {

/// What a node of the daemon is to us.
enum class PipeWireNodeKind { none, camera, microphone, monitor };

/// Property of the node that a feed of this library is: the number of its process.
inline constexpr const char* kFeedProcessKey = "tavrel.process";

/// By the node's media class, which may be nullptr.
PipeWireNodeKind pipeWireNodeKindOf(const char* mediaClass);

/// By which people know a node.
std::string pipeWireNameOf(const PipeWireProperties& properties);

/// The device that a node is. Sound has the number of `channels` that the node offers, at most two.
CaptureDeviceDescription describePipeWireNode(const std::string& name, PipeWireNodeKind kind,
                                              const PipeWireProperties& properties,
                                              const std::vector<PipeWireMode>& modes, std::uint32_t channels,
                                              double largestZoom);

/// The "name" of {"name": "…"}, as the daemon's metadata gives the default devices; empty when there is none.
std::string nameInPipeWireMetadata(const char* text);

}  // namespace tavrel
