#pragma once

#include <spa/buffer/buffer.h>
#include <spa/param/format.h>
#include <spa/param/video/raw.h>
#include <spa/pod/builder.h>
#include <spa/pod/pod.h>

#include <cstdint>
#include <optional>
#include <string>
#include <vector>

#include "Platform/Capture/Private/CameraModes.h"
#include "Platform/Capture/Private/CaptureDriver.h"
#include "Platform/Capture/Private/FrameConversion.h"

namespace tavrel {

/// One way of a camera node to deliver.
struct PipeWireMode {
  spa_media_subtype subtype = SPA_MEDIA_SUBTYPE_raw;
  spa_video_format format = SPA_VIDEO_FORMAT_UNKNOWN;  // of raw pictures
  std::vector<std::int64_t> modifiers = {};            ///< of memory of a device; none: ordinary memory
  CaptureVideoDimensions dimensions = {};
  std::vector<CaptureFrameRateRange> rates = {};
  std::optional<CaptureSizeRange> sizes = {};  ///< where it has all of a range, the largest of which `dimensions` are
  bool isVariable = false;                     ///< it goes at no steady rate
};

/// How a camera delivers from now on.
struct PipeWireAgreement {
  RawFrame frame;                              ///< all but the bytes
  std::optional<std::uint64_t> modifier = {};  ///< of memory of a device
};

/// The ways that one format parameter of a camera offers; those with layouts that we cannot read are left out, as those
/// that only a device can read that is not ours.
std::vector<PipeWireMode> parsePipeWireModes(const spa_pod& parameter);
/// How many channels a microphone's format parameter names; 0 when it does not.
std::uint32_t parsePipeWireChannels(const spa_pod& parameter);

/// The names of the formats in one parameter of a camera.
std::string pipeWireFormatNames(const spa_pod& parameter);

/// The parameters to ask for, best first, for one size and rate. Behind those that the modes can meet there are others
/// for any size and rate, by which a camera may go over to what it had not offered. Of memory of a device, that comes
/// first which the GPU takes in place, unless `isRefused`; the camera chooses among the modifiers.
std::vector<const spa_pod*> buildVideoFormats(spa_pod_builder& builder, const std::vector<PipeWireMode>& modes,
                                              CaptureVideoDimensions dimensions, double rate, bool isRefused = false);
/// Whether the camera has still to choose among the modifiers of what was agreed on.
bool isToBeChosen(const spa_pod& parameter);
const spa_pod* buildAudioFormat(spa_pod_builder& builder, const AudioFormat& format);

/// The layout, matrix and range of what was agreed on; nothing when it is none of ours.
std::optional<PipeWireAgreement> parseAgreedVideoFormat(const spa_pod& parameter, double& rate);

/// What a buffer's block holds; nothing when it is not mapped. A stride of 0 is one that the node does not say; of a
/// negative one it is how far the row before is.
RawFrame::Plane pipeWirePlane(const spa_data& data);

}  // namespace tavrel
