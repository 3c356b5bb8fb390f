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
    pollfd descriptors[] = {{node_->get(), POLLIN, 0}, {wake_, POLLIN, 0}};
    const int ready = error ? 0 : calls_.poll(descriptors, 2, kPollMilliseconds);
    if (stop.stop_requested()) return;
    if (ready < 0) {
      error = refused("cannot be waited for");
    } else if (ready > 0 && descriptors[0].revents != 0) {
      error = dequeue();
    }
    if (!error) continue;
    sink_->didFail(std::move(*error));
    return;
  }
}

std::optional<Error> V4L2Driver::dequeue() {
  v4l2_buffer buffer{};
  buffer.type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  buffer.memory = V4L2_MEMORY_MMAP;
  if (!node_->control(VIDIOC_DQBUF, &buffer)) {
    const int code = errno;
    if (code == EAGAIN) return std::nullopt;
    if (code == EIO && ++errorsInARow_ <= kMostErrorsInARow) {
      sink_->didDrop({frameDurationOf(frameRate_), CaptureClock::realTime()->now(), MediaTime::invalid()});
      return std::nullopt;
    }
    return refused("gives no picture");
  }
  errorsInARow_ = 0;
  if (buffer.index >= mappings_.size()) {
    return makeError(CaptureErrorCode::deviceFailed,
                     fmt::format("{} gives a buffer that does not exist", description_.localizedName));
  }
  deliver(buffer);
  if (!enqueue(buffer.index)) return refused("takes no buffer back");
  return std::nullopt;
}

void V4L2Driver::deliver(const v4l2_buffer& buffer) {
  const bool isMonotonic = (buffer.flags & V4L2_BUF_FLAG_TIMESTAMP_MASK) == V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC;
  const std::int64_t stamp = buffer.timestamp.tv_sec * 1'000'000'000LL + buffer.timestamp.tv_usec * 1'000LL;
  const auto age = ageOfCapture(isMonotonic ? stamp : 0);
  const MediaTime time = captureTimeOf(age);
  const SampleTiming timing = {frameDurationOf(frameRate_), time, MediaTime::invalid()};
  reportGap(buffer.sequence, time);
  if ((buffer.flags & V4L2_BUF_FLAG_ERROR) != 0) return lose("the driver calls a picture damaged", timing);
  delivery_.note(&CaptureDelivery::isStamped, age.has_value());

  auto picture = pool_->createPixelBuffer();
  if (!picture) return sink_->didDrop(timing);
  const Mapping& mapping = mappings_[buffer.index];
  frame_.bytes = static_cast<const std::uint8_t*>(mapping.address);
  frame_.byteCount = std::min<std::size_t>(buffer.bytesused, mapping.length);
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
  int type = V4L2_BUF_TYPE_VIDEO_CAPTURE;
  if (!node_->control(VIDIOC_STREAMOFF, &type)) return refused("does not stop");
  const CaptureVideoDimensions size = {frame_.width, frame_.height};
  const V4L2Mode* mode =
      takesJpegOnly_ ? capabilities_.jpegModeFor(size) : capabilities_.modeFor(size, framesPerSecond);
  const bool isOtherFormat = mode && mode->pixelFormat != pixelFormat_;
  if (isOtherFormat) {
    unmapBuffers();
    if (auto chosen = chooseFormat(*mode); !chosen) return chosen.error();
  }
  chooseRate(framesPerSecond);
  if (isOtherFormat) {
    if (auto mapped = mapBuffers(); !mapped) return mapped.error();
  }
  if (auto started = startStream(); !started) return started.error();
  return std::nullopt;
}

}  // namespace tavrel
