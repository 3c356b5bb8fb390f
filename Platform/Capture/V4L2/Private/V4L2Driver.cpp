#include <fcntl.h>
#include <fmt/format.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <utility>

#include "Platform/Capture/CaptureError.h"
#include "Platform/Capture/Private/FrameRates.h"
#include "Platform/Capture/V4L2/Private/V4L2Driver.h"
#include "Platform/Capture/V4L2/Private/V4L2Formats.h"

namespace tavrel {
namespace {

FrameMatrix matrixOf(const V4L2Format& format) {
  const bool isSaid = format.encoding != V4L2_YCBCR_ENC_DEFAULT;
  switch (isSaid ? format.encoding : static_cast<std::uint32_t>(V4L2_MAP_YCBCR_ENC_DEFAULT(format.colorspace))) {
    case V4L2_YCBCR_ENC_709:
    case V4L2_YCBCR_ENC_XV709: return FrameMatrix::bt709;
    case V4L2_YCBCR_ENC_BT2020:
    case V4L2_YCBCR_ENC_BT2020_CONST_LUM: return FrameMatrix::bt2020;
    default: return FrameMatrix::bt601;
  }
}

FrameRange rangeOf(const V4L2Format& format) {
  if (format.quantization == V4L2_QUANTIZATION_LIM_RANGE) return FrameRange::limited;
  const bool isFull = format.quantization == V4L2_QUANTIZATION_FULL_RANGE || format.colorspace == V4L2_COLORSPACE_JPEG;
  return isFull ? FrameRange::full : FrameRange::unsaid;
}

}  // namespace

V4L2Driver::V4L2Driver(V4L2SystemCalls calls, std::string path, CaptureDeviceDescription description,
                       V4L2Capabilities capabilities)
    : calls_(std::move(calls)),
      path_(std::move(path)),
      description_(std::move(description)),
      capabilities_(std::move(capabilities)) {}

V4L2Driver::~V4L2Driver() { V4L2Driver::close(); }

Error V4L2Driver::refused(std::string_view what) const {
  const int code = errno;
  const std::string& name = description_.localizedName;
  if (code == EBUSY) return makeError(CaptureErrorCode::busy, fmt::format("{} is used by another program", name));
  if (code == ENOMEM) return makeError(CaptureErrorCode::outOfMemory, fmt::format("{} {}", name, what));
  if (code == ENODEV) return unpluggedError(name);
  return v4l2Error(code, fmt::format("{} {}", name, what));
}

Expected<void> V4L2Driver::checkAvailable() {
  {
    const std::lock_guard lock(mutex_);
    if (node_) return {};
  }
  const V4L2Descriptor node(calls_, calls_.open(path_.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
  if (!node.isOpen()) return tl::unexpected(v4l2Error(errno, "cannot open " + path_));
  return {};
}

Expected<void> V4L2Driver::open(CaptureRun run) {
  const std::lock_guard operation(operation_);
  if (thread_.joinable()) {
    return failure(CaptureErrorCode::busy, fmt::format("{} is used by another session", description_.localizedName));
  }
  if (auto prepared = prepare(run); !prepared) {
    release();
    return prepared;
  }
  for (const CaptureControl control : kCaptureControls) apply(control, run.controls);
  auto started = startStream();
  const bool isBusFull = !started && started.error().domain == "posix" && started.error().code == ENOSPC;
  if (isBusFull) started = startJpeg(run, std::move(started));
  if (!started) {
    release();
    return started;
  }
  sink_ = std::move(run.sink);
  wantedRate_ = 0;
  thread_ = std::jthread([this](const std::stop_token& stop) { loop(stop); });
  return {};
}

Expected<void> V4L2Driver::prepare(const CaptureRun& run) {
  takesJpegOnly_ = false;
  const auto mode = capabilities_.modeFor(run.format->dimensions, run.frameRate);
  if (!mode)
    return failure(CaptureErrorCode::unsupportedFormat,
                   fmt::format("{} has no such format", description_.localizedName));
  {
    const std::lock_guard lock(mutex_);
    node_ = std::make_unique<V4L2Descriptor>(calls_, calls_.open(path_.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
    if (!node_->isOpen()) {
      const int code = errno;
      node_ = nullptr;
      return tl::unexpected(v4l2Error(code, "cannot open " + path_));
    }
  }
  wake_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (wake_ < 0) return tl::unexpected(v4l2Error(errno, "cannot make an event descriptor"));
  return configure(*mode, run.frameRate);
}

Expected<void> V4L2Driver::configure(const V4L2Mode& mode, double framesPerSecond) {
  auto signal = findSignal(*node_, capabilities_.inputs, description_.localizedName);
  if (!signal) return tl::unexpected(signal.error());
  signal_ = *signal;
  if (auto chosen = chooseFormat(mode); !chosen) return chosen;
  chooseRate(framesPerSecond);
  return mapBuffers();
}

// The bus has no room for raw pictures, as when two cameras share it.
Expected<void> V4L2Driver::startJpeg(const CaptureRun& run, Expected<void> refusal) {
  const auto mode = capabilities_.jpegModeFor(run.format->dimensions);
  if (!mode || frame_.layout == FrameLayout::mjpeg) return refusal;
  takesJpegOnly_ = true;
  buffers_ = nullptr;
  if (auto configured = configure(*mode, run.frameRate); !configured) return configured;
  return startStream();
}

Expected<void> V4L2Driver::chooseFormat(const V4L2Mode& mode) {
  const CaptureVideoDimensions wanted = signal_.dimensions.value_or(mode.dimensions);
  V4L2Format chosen;
  chosen.pixelFormat = mode.pixelFormat;
  chosen.width = static_cast<std::uint32_t>(wanted.width);
  chosen.height = static_cast<std::uint32_t>(wanted.height);
  if (!exchangeFormat(*node_, VIDIOC_S_FMT, capabilities_.bufferType, chosen)) {
    return tl::unexpected(refused("refuses its format"));
  }
  // The driver answers with what it will do, which may be something else than it offered. Inputs have sizes of their
  // own.
  const bool isOtherSize =
      std::cmp_not_equal(chosen.width, wanted.width) || std::cmp_not_equal(chosen.height, wanted.height);
  if (chosen.pixelFormat != mode.pixelFormat || (isOtherSize && capabilities_.inputs.size() < 2)) {
    return failure(CaptureErrorCode::unsupportedFormat,
                   fmt::format("{} gives {}x{} pictures instead of {}x{}", description_.localizedName, chosen.width,
                               chosen.height, wanted.width, wanted.height));
  }
  frame_ = {};
  frame_.layout = mode.layout;
  frame_.width = static_cast<int>(chosen.width);
  frame_.height = static_cast<int>(chosen.height);
  frame_.matrix = matrixOf(chosen);
  frame_.range = rangeOf(chosen);
  if (const V4L2KnownFormat* known = knownV4L2Format(mode.pixelFormat)) frame_.packed = known->packed;
  pixelFormat_ = mode.pixelFormat;
  bytesPerRow_ = chosen.bytesPerRow;
  frame_.bytesPerRow = std::max<std::size_t>(bytesPerRow_[0], FrameConverter::tightRow(frame_));
  auto pool = PixelBufferPool::create(chosen.width, chosen.height, PixelFormat::bgra32);
  if (!pool) return tl::unexpected(pool.error());
  pool_ = std::move(*pool);
  converter_.forget();
  return {};
}

void V4L2Driver::chooseRate(double framesPerSecond) {
  v4l2_streamparm parameters{};
  parameters.type = capabilities_.bufferType;
  const MediaTime duration = frameDurationOf(framesPerSecond);
  parameters.parm.capture.timeperframe = {static_cast<std::uint32_t>(duration.value),
                                          static_cast<std::uint32_t>(duration.timescale)};
  frameRate_ = signal_.framesPerSecond > 0 ? signal_.framesPerSecond : framesPerSecond;
  // A camera without a choice of rates refuses; it then runs as it does.
  if (signal_.framesPerSecond > 0 || !node_->control(VIDIOC_S_PARM, &parameters)) return;
  const v4l2_fract& chosen = parameters.parm.capture.timeperframe;
  if (chosen.numerator > 0 && chosen.denominator > 0) {
    frameRate_ = static_cast<double>(chosen.denominator) / chosen.numerator;
  }
}

void V4L2Driver::recordDelivery() {
  delivery_.begin({.format = nameOfV4L2Format(pixelFormat_),
                   .dimensions = {frame_.width, frame_.height},
                   .framesPerSecond = frameRate_,
                   .memory = "mmap"});
}

Expected<void> V4L2Driver::mapBuffers() {
  buffers_ = std::make_unique<V4L2Buffers>(calls_, *node_, capabilities_.bufferType);
  if (const char* what = buffers_->map()) return tl::unexpected(refused(what));
  return {};
}

Expected<void> V4L2Driver::startStream() {
  if (const char* what = buffers_->enqueueAll()) return tl::unexpected(refused(what));
  auto type = static_cast<int>(capabilities_.bufferType);
  if (!node_->control(VIDIOC_STREAMON, &type)) return tl::unexpected(refused("does not start"));
  if (signal_.dimensions) {
    v4l2_event_subscription changes{};
    changes.type = V4L2_EVENT_SOURCE_CHANGE;
    node_->control(VIDIOC_SUBSCRIBE_EVENT, &changes);
  }
  lastSequence_.reset();
  stamps_ = {};
  errorsInARow_ = 0;
  recordDelivery();
  return {};
}

bool V4L2Driver::stopStream() {
  auto type = static_cast<int>(capabilities_.bufferType);
  return node_->control(VIDIOC_STREAMOFF, &type);
}

void V4L2Driver::release() {
  if (node_) stopStream();
  buffers_ = nullptr;
  if (wake_ >= 0) ::close(std::exchange(wake_, -1));
  sink_ = nullptr;
  const std::lock_guard lock(mutex_);
  node_ = nullptr;
}

void V4L2Driver::close() {
  const std::lock_guard operation(operation_);
  if (!thread_.joinable()) return;
  thread_.request_stop();
  const std::uint64_t one = 1;
  [[maybe_unused]] const auto written = write(wake_, &one, sizeof one);
  thread_.join();
  release();
}

void V4L2Driver::apply(CaptureControl control, const CaptureControls& controls) {
  const std::lock_guard lock(mutex_);
  if (node_) controls_.apply(*node_, control, controls, description_.localizedName);
}

void V4L2Driver::setFrameRate(double framesPerSecond) {
  // The capture thread does it between two pictures; half a second late at the most.
  wantedRate_ = framesPerSecond;
}

}  // namespace tavrel
