#pragma once

#include <cstdint>
#include <optional>
#include <span>

#include "Platform/Foundation/Geometry.h"
#include "Platform/Media/Private/FFmpegHandles.h"

namespace tavrel {

/// How far pictures are turned to be seen, as Matroska and WebM say it (RFC 9559, ProjectionPoseRoll): degrees
/// counter-clockwise. Nothing for a transform that does not turn or that does more.
std::optional<double> matroskaRoll(const AffineTransform& transform);

/// Has the muxer write the roll. FFmpeg 5.1's says it of spheres only: what it has written must be corrected.
void addMatroskaRoll(AVStream& stream, double degrees);

/// Says of all tracks in the first bytes of a file that they are flat, and corrects the checksum over them. False when
/// there are no tracks.
bool flattenMatroskaTracks(std::span<std::uint8_t> head);

}  // namespace tavrel
