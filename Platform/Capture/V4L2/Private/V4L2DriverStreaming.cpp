// What the driver does on its capture thread.
#include <fmt/format.h>
#include <pthread.h>

#include <cerrno>
#include <utility>

#include "Platform/Capture/CaptureError.h"
#include "Platform/Capture/Private/CaptureTimes.h"
#include "Platform/Capture/Private/FrameRates.h"
#include "Platform/Capture/V4L2/Private/V4L2Driver.h"

namespace tavrel {
namespace {

constexpr int kPollMilliseconds = 500;
/// Drivers report a damaged transfer as an input/output error and go on; so many in a row are no accident.
constexpr int kMostErrorsInARow = 10;
/// More missing pictures than that are one gap, not a count.
constexpr std::uint32_t kLargestGap = 300;

}  // namespace

void V4L2Driver::loop(const std::stop_token& stop) {
  pthread_setname_np(pthread_self(), "tavrel.v4l2");
  while (!stop.stop_requested()) {
    std::optional<Error> error;
    if (const double rate = wantedRate_.exchange(0); rate > 0 && rate != frameRate_) error = changeRate(rate);
    pollfd descriptors[] = {{node_->get(), POLLIN | POLLPRI, 0}, {wake_, POLLIN, 0}};
    const int ready = error ? 0 : calls_.poll(descriptors, 2, kPollMilliseconds);
    if (stop.stop_requested()) return;
    if (ready < 0) {
      error = refused("cannot be waited for");
    } else if (ready > 0 && (descriptors[0].revents & POLLPRI) != 0 && hasNewSource()) {
      error = followSource();
    } else if (ready > 0 && (descriptors[0].revents & ~POLLPRI) != 0) {
      error = dequeue();
    }
    if (!error) continue;
    sink_->didFail(std::move(*error));
    return;
  }
}

std::optional<Error> V4L2Driver::dequeue() {
  V4L2FilledBuffer buffer;
  if (!buffers_->dequeue(buffer)) {
    const int code = errno;
    if (code == EAGAIN) return std::nullopt;
    if (code == EBADR) {
      return makeError(CaptureErrorCode::deviceFailed,
                       fmt::format("{} gives a buffer that does not exist", description_.localizedName));
    }
    if (code == EIO && ++errorsInARow_ <= kMostErrorsInARow) {
      sink_->didDrop({frameDurationOf(frameRate_), CaptureClock::realTime()->now(), MediaTime::invalid()});
      return std::nullopt;
    }
    return refused("gives no picture");
  }
  errorsInARow_ = 0;
  deliver(buffer);
  if (!buffers_->enqueue(buffer.index)) return refused("takes no buffer back");
  return std::nullopt;
}

void V4L2Driver::deliver(const V4L2FilledBuffer& buffer) {
  const bool isMonotonic = (buffer.flags & V4L2_BUF_FLAG_TIMESTAMP_MASK) == V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC;
  const auto age = stamps_.ageOf(isMonotonic ? buffer.nanoseconds : 0);
  const MediaTime time = captureTimeOf(age);
  const SampleTiming timing = {frameDurationOf(frameRate_), time, MediaTime::invalid()};
  reportGap(buffer.sequence, time);
  if ((buffer.flags & V4L2_BUF_FLAG_ERROR) != 0) return lose("the driver calls a picture damaged", timing);
  delivery_.note(&CaptureDelivery::isStamped, age.has_value());

  auto picture = pool_->createPixelBuffer();
  if (!picture) return sink_->didDrop(timing);
  frame_.bytes = buffer.planes[0].bytes;
  frame_.byteCount = buffer.planes[0].byteCount;
  for (std::size_t i = 0; i < frame_.chroma.size(); ++i) {
    frame_.chroma.at(i) = buffer.planes.at(i + 1);
    frame_.chroma.at(i).bytesPerRow = bytesPerRow_.at(i + 1);
  }
  if (auto converted = converter_.convert(frame_, **picture); !converted) {
    return lose(converted.error().description, timing);
  }
  if (auto sample = SampleBuffer::createImage(std::move(*picture), timing)) sink_->didCapture(std::move(*sample));
}

void V4L2Driver::lose(std::string reason, const SampleTiming& timing) {
  delivery_.note(&CaptureDelivery::loss, std::move(reason));
  sink_->didDrop(timing);
}

void V4L2Driver::reportGap(std::uint32_t sequence, const MediaTime& time) {
  const std::uint32_t missing = lastSequence_ ? sequence - *lastSequence_ - 1 : 0;
  lastSequence_ = sequence;
  if (missing == 0 || missing > kLargestGap) return;
  const MediaTime duration = frameDurationOf(frameRate_);
  for (std::uint32_t back = missing; back > 0; --back) {
    sink_->didDrop(
        {duration, time - MediaTime::fromSeconds(back / frameRate_, CaptureClock::kTimescale), MediaTime::invalid()});
  }
}

std::optional<Error> V4L2Driver::changeRate(double framesPerSecond) {
  if (!stopStream()) return refused("does not stop");
  const CaptureVideoDimensions size = {frame_.width, frame_.height};
  const auto mode = takesJpegOnly_ ? capabilities_.jpegModeFor(size) : capabilities_.modeFor(size, framesPerSecond);
  const bool isOtherFormat = mode && mode->pixelFormat != pixelFormat_;
  if (isOtherFormat) {
    buffers_ = nullptr;
    if (auto chosen = chooseFormat(*mode); !chosen) return chosen.error();
  }
  chooseRate(framesPerSecond);
  if (isOtherFormat) {
    if (auto mapped = mapBuffers(); !mapped) return mapped.error();
  }
  if (auto started = startStream(); !started) return started.error();
  return std::nullopt;
}

bool V4L2Driver::hasNewSource() {
  bool isNew = false;
  for (v4l2_event event{}; node_->control(VIDIOC_DQEVENT, &event); event = {}) {
    isNew |= event.type == V4L2_EVENT_SOURCE_CHANGE;
  }
  return isNew;
}

// The buffers are too small, or have too many rows, for what comes now.
std::optional<Error> V4L2Driver::followSource() {
  if (!stopStream()) return refused("does not stop");
  buffers_ = nullptr;
  const V4L2Mode mode = {pixelFormat_, frame_.layout, {frame_.width, frame_.height}, {}};
  if (auto configured = configure(mode, frameRate_); !configured) return configured.error();
  if (auto started = startStream(); !started) return started.error();
  return std::nullopt;
}

}  // namespace tavrel
