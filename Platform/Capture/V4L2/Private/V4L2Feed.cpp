#include "Platform/Capture/V4L2/Private/V4L2Feed.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <pthread.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <utility>

#include "Platform/Capture/CaptureError.h"
#include "Platform/Capture/Private/FrameRates.h"

namespace tavrel {
namespace {

constexpr std::chrono::seconds kRetry(2);

std::int64_t monotonicNow() { return std::chrono::steady_clock::now().time_since_epoch().count(); }

/// BGRA by its two names: with and without a meaning of the fourth byte.
std::vector<std::uint32_t> pixelFormatsOf(CameraFeedFormat format) {
  switch (format) {
    case CameraFeedFormat::bgra: return {V4L2_PIX_FMT_XBGR32, V4L2_PIX_FMT_ABGR32, V4L2_PIX_FMT_BGR32};
    case CameraFeedFormat::nv12: return {V4L2_PIX_FMT_NV12};
    case CameraFeedFormat::yuy2: return {V4L2_PIX_FMT_YUYV};
  }
  return {};
}

}  // namespace

Expected<std::unique_ptr<CameraFeed>> V4L2Feed::create(std::string path, const Description& description, Events events,
                                                       V4L2SystemCalls calls) {
  std::unique_ptr<V4L2Feed> made(new V4L2Feed(std::move(path), description, std::move(events), std::move(calls)));
  if (auto opened = made->open(); !opened) return tl::unexpected(opened.error());
  made->thread_ = std::jthread([feed = made.get()](const std::stop_token& stop) { feed->loop(stop); });
  return made;
}

V4L2Feed::V4L2Feed(std::string path, Description description, Events events, V4L2SystemCalls calls)
    : path_(std::move(path)),
      description_(std::move(description)),
      events_(std::move(events)),
      calls_(std::move(calls)),
      pictures_(description_.framesPerSecond) {}

V4L2Feed::~V4L2Feed() = default;

bool V4L2Feed::hasReaders() const {
  const std::lock_guard lock(mutex_);
  return isOpen_;
}

void V4L2Feed::show(std::shared_ptr<const PixelBufferSnapshot> picture) {
  pictures_.show(std::move(picture), monotonicNow());
  const std::lock_guard lock(mutex_);
  hasPicture_ = true;
  wake_.notify_all();
}

Expected<void> V4L2Feed::open() {
  auto node = std::make_unique<V4L2Descriptor>(calls_, calls_.open(path_.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC));
  if (!node->isOpen()) return tl::unexpected(v4l2Error(errno, "cannot open " + path_));
  v4l2_capability capability{};
  if (!node->control(VIDIOC_QUERYCAP, &capability)) {
    return tl::unexpected(v4l2Error(errno, path_ + " is no video node"));
  }
  const std::uint32_t abilities =
      (capability.capabilities & V4L2_CAP_DEVICE_CAPS) != 0 ? capability.device_caps : capability.capabilities;
  if ((abilities & V4L2_CAP_VIDEO_OUTPUT) == 0 || (abilities & V4L2_CAP_READWRITE) == 0) {
    return failure(CaptureErrorCode::unsupportedFormat,
                   path_ + " takes no pictures: expected the node of a loopback camera (v4l2loopback)");
  }
  const auto isTaken = [&](CameraFeedFormat format) { return chooseFormat(*node, format); };
  if (std::none_of(description_.formats.begin(), description_.formats.end(), isTaken)) {
    return failure(CaptureErrorCode::unsupportedFormat, fmt::format("{} takes no pictures of {}x{} in a layout of ours",
                                                                    path_, description_.width, description_.height));
  }
  v4l2_streamparm parameters{};
  parameters.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
  const MediaTime interval = frameDurationOf(description_.framesPerSecond);
  parameters.parm.output.timeperframe = {static_cast<std::uint32_t>(interval.value),
                                         static_cast<std::uint32_t>(interval.timescale)};
  node->control(VIDIOC_S_PARM, &parameters);  // a node without rates goes at ours
  // Who only writes is no writer to v4l2loopback, which would never take another one after it (exclusive_caps).
  int type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
  node->control(VIDIOC_STREAMON, &type);
  node_ = std::move(node);
  const std::lock_guard lock(mutex_);
  isOpen_ = true;
  return {};
}

bool V4L2Feed::chooseFormat(const V4L2Descriptor& node, CameraFeedFormat format) {
  for (const std::uint32_t pixelFormat : pixelFormatsOf(format)) {
    v4l2_format wanted{};
    wanted.type = V4L2_BUF_TYPE_VIDEO_OUTPUT;
    v4l2_pix_format& pix = wanted.fmt.pix;
    pix.width = static_cast<std::uint32_t>(description_.width);
    pix.height = static_cast<std::uint32_t>(description_.height);
    pix.pixelformat = pixelFormat;
    pix.field = V4L2_FIELD_NONE;
    const bool isYCbCr = format != CameraFeedFormat::bgra;
    pix.colorspace = V4L2_COLORSPACE_SRGB;
    pix.ycbcr_enc = isYCbCr ? V4L2_YCBCR_ENC_601 : V4L2_YCBCR_ENC_DEFAULT;
    pix.quantization = isYCbCr ? V4L2_QUANTIZATION_LIM_RANGE : V4L2_QUANTIZATION_DEFAULT;
    stride_ = feedStride(format, description_.width);
    pix.bytesperline = static_cast<std::uint32_t>(stride_);
    pix.sizeimage = static_cast<std::uint32_t>(feedByteCount(format, stride_, description_.height));
    if (!node.control(VIDIOC_S_FMT, &wanted)) continue;
    const bool isAsWanted = pix.pixelformat == pixelFormat && std::cmp_equal(pix.width, description_.width) &&
                            std::cmp_equal(pix.height, description_.height);
    if (!isAsWanted) continue;
    format_ = format;
    stride_ = std::max<std::size_t>(stride_, pix.bytesperline);
    // Not to the end of the node's memory, which is whole pages: some readers drop what has other than its own size.
    bytes_.assign(feedByteCount(format, stride_, description_.height), 0);
    return true;
  }
  return false;
}

void V4L2Feed::loop(const std::stop_token& stop) {
  pthread_setname_np(pthread_self(), "tavrel.feed");
  if (events_.readersChanged) events_.readersChanged(true);
  while (!stop.stop_requested()) {
    {
      std::unique_lock lock(mutex_);
      if (!node_) {
        wake_.wait_for(lock, stop, kRetry, [] { return false; });
      } else {
        wake_.wait_for(lock, stop, std::chrono::nanoseconds(pictures_.wait(monotonicNow())),
                       [&] { return hasPicture_ && pictures_.wait(monotonicNow()) == 0; });
      }
      hasPicture_ = false;
    }
    if (stop.stop_requested()) return;
    if (!node_) {
      if (open() && events_.readersChanged) events_.readersChanged(true);
      continue;
    }
    const auto picture = pictures_.take(monotonicNow());
    if (!picture) continue;
    if (const auto error = writePicture(*picture)) fail(*error);
  }
}

std::optional<Error> V4L2Feed::writePicture(const PixelBufferSnapshot& picture) {
  writeFeedPicture(picture, format_, bytes_.data(), stride_);
  if (calls_.write(node_->get(), bytes_.data(), bytes_.size()) >= 0) return std::nullopt;
  const int code = errno;
  pictures_.missed();
  if (code == EAGAIN) return std::nullopt;  // the node still has those before
  return v4l2Error(code, path_ + " takes no picture");
}

void V4L2Feed::fail(const Error& error) {
  node_ = nullptr;
  {
    const std::lock_guard lock(mutex_);
    isOpen_ = false;
  }
  if (events_.failed) events_.failed(error);
  if (events_.readersChanged) events_.readersChanged(false);
}

}  // namespace tavrel
