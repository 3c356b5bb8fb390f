#include "Platform/Capture/V4L2/Private/V4L2Signal.h"

#include <fmt/format.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "Platform/Capture/CaptureError.h"

namespace tavrel {
namespace {

constexpr std::uint32_t kSilent =
    V4L2_IN_ST_NO_POWER | V4L2_IN_ST_NO_SIGNAL | V4L2_IN_ST_NO_SYNC | V4L2_IN_ST_NO_CARRIER;

/// Of the present input; nothing without one.
std::optional<V4L2Signal> signalOf(const V4L2Descriptor& node, const V4L2Input& input) {
  v4l2_input state{};
  state.index = input.index;
  if (node.control(VIDIOC_ENUMINPUT, &state) && (state.status & kSilent) != 0) return std::nullopt;
  if (!input.hasTimings) return V4L2Signal();
  v4l2_dv_timings timings{};
  if (node.control(VIDIOC_QUERY_DV_TIMINGS, &timings)) {
    // A program that streams from the node has chosen them already.
    if (!node.control(VIDIOC_S_DV_TIMINGS, &timings) && errno != EBUSY) return std::nullopt;
  } else if (errno == ENOLINK || errno == ENOLCK || errno == ERANGE || !node.control(VIDIOC_G_DV_TIMINGS, &timings)) {
    return std::nullopt;
  }
  V4L2Signal signal;
  signal.dimensions = {static_cast<int>(timings.bt.width), static_cast<int>(timings.bt.height)};
  signal.framesPerSecond = rateOfTimings(timings);
  return signal;
}

}  // namespace

double rateOfTimings(const v4l2_dv_timings& timings) {
  const v4l2_bt_timings& bt = timings.bt;
  const double pixels = static_cast<double>(V4L2_DV_BT_FRAME_WIDTH(&bt)) * V4L2_DV_BT_FRAME_HEIGHT(&bt);
  return timings.type == V4L2_DV_BT_656_1120 && pixels > 0 ? static_cast<double>(bt.pixelclock) / pixels : 0;
}

Expected<V4L2Signal> findSignal(const V4L2Descriptor& node, const std::vector<V4L2Input>& inputs,
                                const std::string& camera) {
  int present = 0;
  if (inputs.empty() || !node.control(VIDIOC_G_INPUT, &present)) return V4L2Signal();
  auto order = inputs;
  std::stable_partition(order.begin(), order.end(),
                        [&](const V4L2Input& input) { return std::cmp_equal(input.index, present); });
  std::string names;
  int chosen = present;
  for (const V4L2Input& input : order) {
    int index = static_cast<int>(input.index);
    names += (names.empty() ? "" : ", ") + input.name;
    // Only the present input tells what it receives.
    if (index != chosen && !node.control(VIDIOC_S_INPUT, &index)) continue;
    chosen = index;
    if (const auto signal = signalOf(node, input)) return *signal;
  }
  if (chosen != present) node.control(VIDIOC_S_INPUT, &present);
  return failure(CaptureErrorCode::deviceSilent,
                 fmt::format("{} gets no signal ({}); connect a source and switch it on", camera, names));
}

}  // namespace tavrel
