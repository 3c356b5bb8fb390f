// What a played node receives, by which input, and which part of the picture it looks at.
#include <algorithm>
#include <cerrno>
#include <utility>

#include "Platform/Capture/V4L2/Private/V4L2Probe.h"
#include "Support/CaptureFakeVideoNode.h"

namespace tavrel::test {

int FakeVideoNode::sources(unsigned long request, void* argument) {
  if (inputs.empty()) return fail(ENOTTY);
  const Input& present = inputs[static_cast<std::size_t>(input_)];
  switch (request) {
    case VIDIOC_ENUMINPUT: {
      auto& input = *static_cast<v4l2_input*>(argument);
      if (input.index >= inputs.size()) return fail(EINVAL);
      const Input& asked = inputs[input.index];
      std::copy_n(asked.name.c_str(), asked.name.size() + 1, input.name);
      input.capabilities = asked.size ? V4L2_IN_CAP_DV_TIMINGS : 0U;
      // Valid for the present input only.
      input.status = &asked == &present && !asked.hasSignal ? V4L2_IN_ST_NO_SIGNAL : 0U;
      return 0;
    }
    case VIDIOC_G_INPUT: *static_cast<int*>(argument) = input_; return 0;
    case VIDIOC_S_INPUT:
      if (!buffers_.empty()) return fail(EBUSY, "changed the input while there are buffers");
      input_ = *static_cast<int*>(argument);
      return 0;
    case VIDIOC_SUBSCRIBE_EVENT: isSubscribed_ = true; return 0;
    case VIDIOC_DQEVENT:
      if (!std::exchange(hasEvent_, false)) return fail(ENOENT);
      static_cast<v4l2_event*>(argument)->type = V4L2_EVENT_SOURCE_CHANGE;
      return 0;
    default: break;
  }
  if (!present.size) return fail(ENODATA);
  if (request == VIDIOC_QUERY_DV_TIMINGS && !present.hasSignal) return fail(ENOLINK);
  if (request == VIDIOC_S_DV_TIMINGS) return buffers_.empty() ? 0 : fail(EBUSY, "changed timings under buffers");
  auto& timings = *static_cast<v4l2_dv_timings*>(argument);
  timings = {};
  timings.type = V4L2_DV_BT_656_1120;
  timings.bt.width = present.size->first;
  timings.bt.height = present.size->second;
  timings.bt.pixelclock = std::uint64_t{present.size->first} * present.size->second * present.rate;
  return 0;
}

int FakeVideoNode::regions(unsigned long request, v4l2_ext_controls& list) {
  if (!hasRegion || list.count != 1 || list.controls[0].id != kV4L2RegionControl) return fail(EINVAL);
  auto& region_ = *static_cast<v4l2_rect*>(list.controls[0].ptr);
  (request == VIDIOC_S_EXT_CTRLS ? region : region_) = request == VIDIOC_S_EXT_CTRLS ? region_ : region;
  return 0;
}

void FakeVideoNode::setSource(std::size_t input, bool hasSignal, std::pair<std::uint32_t, std::uint32_t> size) {
  const std::lock_guard lock(mutex_);
  inputs.at(input).hasSignal = hasSignal;
  if (inputs.at(input).size) inputs.at(input).size = size;
  hasEvent_ = isSubscribed_;
}

int FakeVideoNode::openings() const {
  const std::lock_guard lock(mutex_);
  return openings_;
}

int FakeVideoNode::chosenInput() const {
  const std::lock_guard lock(mutex_);
  return input_;
}

v4l2_rect FakeVideoNode::chosenRegion() const {
  const std::lock_guard lock(mutex_);
  return region;
}

std::vector<int> FakeVideoNode::valuesOf(std::uint32_t identity) const {
  const std::lock_guard lock(mutex_);
  std::vector<int> values;
  for (const v4l2_control& setting : settings_) {
    if (setting.id == identity) values.push_back(setting.value);
  }
  return values;
}

}  // namespace tavrel::test
