#include "Support/CaptureFakeVideoNode.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <tuple>
#include <utility>

namespace tavrel::test {
namespace {

using namespace std::chrono_literals;

void copyText(std::uint8_t* to, std::size_t size, const std::string& text) {
  std::copy_n(text.data(), std::min(size - 1, text.size()), to);
}

}  // namespace

int FakeVideoNode::fail(int code, const char* violation) {
  if (violation) violations_.emplace_back(violation);
  errno = code;
  return -1;
}

int FakeVideoNode::control(unsigned long request, void* argument) {
  std::unique_lock lock(mutex_);
  if (request == VIDIOC_STREAMON) released_.wait(lock, [this] { return !isHeld_; });
  if (isGone_) return fail(ENODEV);
  return controlLocked(request, argument);
}

int FakeVideoNode::controlLocked(unsigned long request, void* argument) {
  switch (request) {
    case VIDIOC_QUERYCAP: {
      auto& capability = *static_cast<v4l2_capability*>(argument);
      copyText(capability.card, sizeof capability.card, card);
      copyText(capability.bus_info, sizeof capability.bus_info, bus);
      capability.capabilities = deviceCaps | V4L2_CAP_DEVICE_CAPS | V4L2_CAP_META_CAPTURE;
      capability.device_caps = deviceCaps;
      return 0;
    }
    case VIDIOC_ENUM_FMT:
    case VIDIOC_ENUM_FRAMESIZES:
    case VIDIOC_ENUM_FRAMEINTERVALS: return enumerate(request, argument);
    case VIDIOC_G_FMT:
    case VIDIOC_TRY_FMT:
    case VIDIOC_S_FMT: return exchangeFormat(request, *static_cast<v4l2_format*>(argument));
    case VIDIOC_ENUMINPUT:
    case VIDIOC_G_INPUT:
    case VIDIOC_S_INPUT:
    case VIDIOC_QUERY_DV_TIMINGS:
    case VIDIOC_G_DV_TIMINGS:
    case VIDIOC_S_DV_TIMINGS:
    case VIDIOC_SUBSCRIBE_EVENT:
    case VIDIOC_DQEVENT: return sources(request, argument);
    case VIDIOC_G_EXT_CTRLS:
    case VIDIOC_S_EXT_CTRLS: return regions(request, *static_cast<v4l2_ext_controls*>(argument));
    case VIDIOC_S_PARM: return setRate(*static_cast<v4l2_streamparm*>(argument));
    case VIDIOC_REQBUFS: return requestBuffers(*static_cast<v4l2_requestbuffers*>(argument));
    case VIDIOC_QUERYBUF: return queryBuffer(*static_cast<v4l2_buffer*>(argument));
    case VIDIOC_QBUF: return queue(*static_cast<v4l2_buffer*>(argument));
    case VIDIOC_DQBUF: return dequeue(*static_cast<v4l2_buffer*>(argument));
    case VIDIOC_STREAMON: return stream(true);
    case VIDIOC_STREAMOFF: return stream(false);
    case VIDIOC_QUERYCTRL:
    case VIDIOC_QUERYMENU:
    case VIDIOC_G_CTRL:
    case VIDIOC_S_CTRL: return controls_(request, argument);
    default: return fail(ENOTTY);
  }
}

int FakeVideoNode::requestBuffers(v4l2_requestbuffers& request) {
  if (isStreaming_) return fail(EBUSY, "requested buffers while streaming");
  const bool isMapped = std::any_of(buffers_.begin(), buffers_.end(), [](const Buffer& one) {
    return std::ranges::any_of(one.planes, [](const Plane& plane) { return plane.isMapped; });
  });
  if (isMapped) return fail(EBUSY, "freed buffers that are mapped");
  buffers_.clear();
  queued_.clear();
  filled_.clear();
  if (request.count > 0 && chosen_.sizeimage == 0) return fail(EINVAL, "requested buffers without a format");
  request.count = std::min(request.count, 3U);
  buffers_.resize(request.count);
  for (Buffer& buffer : buffers_) {
    for (const std::size_t size : planeSizes()) buffer.planes.push_back({std::vector<std::uint8_t>(size)});
  }
  return 0;
}

int FakeVideoNode::queryBuffer(v4l2_buffer& buffer) {
  if (buffer.index >= buffers_.size()) return fail(EINVAL, "queried what is no buffer");
  const auto& planes = buffers_[buffer.index].planes;
  const auto offset = [&](std::size_t plane) { return static_cast<std::uint32_t>((buffer.index * 8 + plane) * 4096); };
  if (!isMultiPlanar()) {
    buffer.length = static_cast<std::uint32_t>(planes[0].memory.size());
    buffer.m.offset = offset(0);
    return 0;
  }
  if (buffer.length < planes.size()) return fail(EINVAL, "gave no room for the planes");
  buffer.length = static_cast<std::uint32_t>(planes.size());
  for (std::size_t i = 0; i < planes.size(); ++i) {
    buffer.m.planes[i].length = static_cast<std::uint32_t>(planes[i].memory.size());
    buffer.m.planes[i].m.mem_offset = offset(i);
  }
  return 0;
}

int FakeVideoNode::queue(v4l2_buffer& buffer) {
  if (buffer.index >= buffers_.size()) return fail(EINVAL, "queued what is no buffer");
  if (buffers_[buffer.index].state != State::dequeued) return fail(EINVAL, "queued a buffer twice");
  if (buffer.type != bufferType()) return fail(EINVAL, "queued a buffer of the other kind");
  if (isMultiPlanar() && buffer.length != buffers_[buffer.index].planes.size()) {
    return fail(EINVAL, "queued a buffer with other planes");
  }
  buffers_[buffer.index].state = State::queued;
  queued_.push_back(buffer.index);
  return 0;
}

int FakeVideoNode::dequeue(v4l2_buffer& buffer) {
  if (!isStreaming_) return fail(EINVAL, "dequeued without a stream");
  if (dequeueFailures_ > 0) {
    --dequeueFailures_;
    return fail(dequeueErrno_);
  }
  advance();
  if (filled_.empty()) return fail(EAGAIN);
  const std::uint32_t index = filled_.front();
  filled_.pop_front();
  Buffer& filled = buffers_[index];
  filled.state = State::dequeued;
  buffer.index = index;
  buffer.sequence = filled.sequence;
  for (std::size_t i = 0; isMultiPlanar() && i < filled.planes.size(); ++i) {
    buffer.m.planes[i].bytesused = static_cast<std::uint32_t>(filled.planes[i].used);
  }
  if (!isMultiPlanar()) buffer.bytesused = static_cast<std::uint32_t>(filled.planes[0].used);
  buffer.flags = stampFlags | (filled.isDamaged ? V4L2_BUF_FLAG_ERROR : 0U);
  const std::int64_t time = stamp ? stamp(filled.time, filled.sequence) : filled.time;
  buffer.timestamp = {time / 1'000'000'000, time % 1'000'000'000 / 1000};
  return 0;
}

int FakeVideoNode::stream(bool on) {
  if (on && isStreaming_) return fail(EBUSY, "started a stream twice");
  if (on && queued_.empty()) return fail(EINVAL, "started a stream without buffers");
  if (on && isBusFull && chosen_.pixelformat != V4L2_PIX_FMT_MJPEG) return fail(ENOSPC);
  isStreaming_ = on;
  if (on) {
    ++starts_;
    sequence_ = 0;
    nextFrame_ = std::chrono::steady_clock::now() + std::chrono::microseconds(1'000'000 / rate_);
    return 0;
  }
  // The driver lets go of everything.
  queued_.clear();
  filled_.clear();
  for (Buffer& buffer : buffers_) buffer.state = State::dequeued;
  return 0;
}

int FakeVideoNode::controls_(unsigned long request, void* argument) {
  // Each of these arguments begins with the control's identity.
  const auto found = controls.find(*static_cast<std::uint32_t*>(argument));
  if (found == controls.end()) return fail(EINVAL);
  Control& control = found->second;
  if (request == VIDIOC_QUERYCTRL) {
    auto& query = *static_cast<v4l2_queryctrl*>(argument);
    query.type = control.isButton       ? V4L2_CTRL_TYPE_BUTTON
                 : control.menu.empty() ? V4L2_CTRL_TYPE_INTEGER
                                        : V4L2_CTRL_TYPE_MENU;
    query.minimum = control.minimum;
    query.maximum = control.maximum;
    return 0;
  }
  if (request == VIDIOC_QUERYMENU) {
    return control.menu.contains(static_cast<int>(static_cast<v4l2_querymenu*>(argument)->index)) ? 0 : fail(EINVAL);
  }
  auto& value = *static_cast<v4l2_control*>(argument);
  if (request == VIDIOC_G_CTRL) {
    if (control.isButton) return fail(EACCES, "read a button");
    value.value = control.value;
    return 0;
  }
  const bool isOutside = value.value < control.minimum || value.value > control.maximum;
  if (isOutside || (!control.menu.empty() && !control.menu.contains(value.value))) {
    return fail(ERANGE, "set a control outside its range");
  }
  control.value = value.value;
  settings_.push_back(value);
  const auto exposure = controls.find(V4L2_CID_EXPOSURE_ABSOLUTE);
  const bool isManual = value.id == V4L2_CID_EXPOSURE_AUTO && value.value == V4L2_EXPOSURE_MANUAL;
  if (isManual && manualExposure && exposure != controls.end()) exposure->second.value = *manualExposure;
  return 0;
}

void FakeVideoNode::advance() {
  const auto now = std::chrono::steady_clock::now();
  while (isStreaming_ && !isStalled_ && nextFrame_ <= now) {
    const auto time = nextFrame_;
    nextFrame_ += std::chrono::microseconds(1'000'000 / rate_);
    const std::uint32_t sequence = sequence_++;
    if (skips_ > 0) {
      --skips_;
      continue;
    }
    if (queued_.empty()) continue;  // lost, like in a real driver
    Buffer& buffer = buffers_[queued_.front()];
    filled_.push_back(queued_.front());
    queued_.pop_front();
    buffer.state = State::filled;
    buffer.sequence = sequence;
    buffer.isDamaged = std::exchange(damagesNext_, false);
    buffer.time = time.time_since_epoch().count();
    for (std::size_t i = 0; i < buffer.planes.size(); ++i) {
      auto& [memory, isMapped, used] = buffer.planes[i];
      used = memory.size();
      if (i == 0 && draw) used = draw(memory.data(), memory.size(), sequence);
      if (i > 0 && drawPlane) used = drawPlane(i, memory.data(), memory.size());
    }
  }
  if (isStalled_) nextFrame_ = now;
}

void FakeVideoNode::unplug() {
  const std::lock_guard lock(mutex_);
  isGone_ = true;
}

void FakeVideoNode::plugIn() {
  const std::lock_guard lock(mutex_);
  isGone_ = false;
  isStreaming_ = false;
  buffers_.clear();
  queued_.clear();
  filled_.clear();
}

void FakeVideoNode::setBusy(int openErrno, int formatErrno) {
  const std::lock_guard lock(mutex_);
  openErrno_ = openErrno;
  formatErrno_ = formatErrno;
}

void FakeVideoNode::setStalled(bool stalled) {
  const std::lock_guard lock(mutex_);
  isStalled_ = stalled;
}

void FakeVideoNode::setHeld(bool held) {
  const std::lock_guard lock(mutex_);
  isHeld_ = held;
  released_.notify_all();
}

void FakeVideoNode::failDequeues(int count, int code) {
  const std::lock_guard lock(mutex_);
  dequeueFailures_ = count;
  dequeueErrno_ = code;
}

void FakeVideoNode::damageNextFrame() {
  const std::lock_guard lock(mutex_);
  damagesNext_ = true;
}

void FakeVideoNode::skipFrames(std::uint32_t count) {
  const std::lock_guard lock(mutex_);
  skips_ = count;
}

std::vector<std::string> FakeVideoNode::violations() const {
  const std::lock_guard lock(mutex_);
  return violations_;
}

int FakeVideoNode::openCount() const {
  const std::lock_guard lock(mutex_);
  return openCount_;
}

int FakeVideoNode::mappedCount() const {
  const std::lock_guard lock(mutex_);
  std::ptrdiff_t count = 0;
  for (const Buffer& buffer : buffers_) {
    count += std::ranges::count_if(buffer.planes, [](const Plane& plane) { return plane.isMapped; });
  }
  return static_cast<int>(count);
}

bool FakeVideoNode::isStreaming() const {
  const std::lock_guard lock(mutex_);
  return isStreaming_;
}

int FakeVideoNode::controlValue(std::uint32_t identity) const {
  const std::lock_guard lock(mutex_);
  return controls.at(identity).value;
}

double FakeVideoNode::frameRate() const {
  const std::lock_guard lock(mutex_);
  return rate_;
}

int FakeVideoNode::starts() const {
  const std::lock_guard lock(mutex_);
  return starts_;
}

}  // namespace tavrel::test
