#include "Platform/Capture/PipeWire/Private/PipeWireFeed.h"

#include <fmt/format.h>
#include <spa/param/buffers.h>
#include <spa/param/param.h>
#include <spa/param/video/format-utils.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <chrono>
#include <utility>
#include <vector>

#include "Platform/Capture/CaptureError.h"
#include "Platform/Capture/PipeWire/Private/PipeWireNodes.h"
#include "Platform/Capture/Private/FrameRates.h"

namespace tavrel {
namespace {

constexpr std::int64_t kOpenNanoseconds = 5'000'000'000;
constexpr std::int64_t kRetrySeconds = 2;
constexpr int kBufferCount = 4;

std::int64_t monotonicNow() { return std::chrono::steady_clock::now().time_since_epoch().count(); }

struct Layout {
  CameraFeedFormat format;
  spa_video_format name;
};

constexpr Layout kLayouts[] = {{CameraFeedFormat::nv12, SPA_VIDEO_FORMAT_NV12},
                               {CameraFeedFormat::yuy2, SPA_VIDEO_FORMAT_YUY2},
                               {CameraFeedFormat::bgra, SPA_VIDEO_FORMAT_BGRA},
                               {CameraFeedFormat::bgra, SPA_VIDEO_FORMAT_BGRx}};

const spa_pod* formatParameter(spa_pod_builder& builder, const CameraFeed::Description& description,
                               const Layout& layout) {
  const spa_rectangle size = {static_cast<std::uint32_t>(description.width),
                              static_cast<std::uint32_t>(description.height)};
  const MediaTime interval = frameDurationOf(description.framesPerSecond);
  const spa_fraction rate = {static_cast<std::uint32_t>(interval.timescale),
                             static_cast<std::uint32_t>(interval.value)};
  spa_pod_frame frame{};
  spa_pod_builder_push_object(&builder, &frame, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat);
  spa_pod_builder_add(&builder, SPA_FORMAT_mediaType, SPA_POD_Id(SPA_MEDIA_TYPE_video), SPA_FORMAT_mediaSubtype,
                      SPA_POD_Id(SPA_MEDIA_SUBTYPE_raw), SPA_FORMAT_VIDEO_format, SPA_POD_Id(layout.name),
                      SPA_FORMAT_VIDEO_size, SPA_POD_Rectangle(&size), SPA_FORMAT_VIDEO_framerate,
                      SPA_POD_Fraction(&rate), 0);
  return static_cast<const spa_pod*>(spa_pod_builder_pop(&builder, &frame));
}

void setTimer(PipeWireLoop& loop, spa_source* timer, std::int64_t nanoseconds) {
  // Zero would stop it.
  const std::int64_t delay = std::max<std::int64_t>(nanoseconds, 1);
  timespec value{delay / 1'000'000'000, delay % 1'000'000'000};
  pw_loop_update_timer(loop.loop(), timer, &value, nullptr, false);
}

}  // namespace

const pw_core_events PipeWireFeed::kCoreEvents = [] {
  pw_core_events events{};
  events.version = PW_VERSION_CORE_EVENTS;
  events.error = coreError;
  return events;
}();

const pw_stream_events PipeWireFeed::kStreamEvents = [] {
  pw_stream_events events{};
  events.version = PW_VERSION_STREAM_EVENTS;
  events.state_changed = stateChanged;
  events.param_changed = parameterChanged;
  events.process = [](void* data) { static_cast<PipeWireFeed*>(data)->process(); };
  return events;
}();

Expected<std::unique_ptr<CameraFeed>> PipeWireFeed::create(const Description& description, Events events) {
  std::unique_ptr<PipeWireFeed> made(new PipeWireFeed(description, std::move(events)));
  if (auto started = made->start(); !started) return tl::unexpected(started.error());
  return made;
}

PipeWireFeed::PipeWireFeed(Description description, Events events)
    : description_(std::move(description)), events_(std::move(events)), pictures_(description_.framesPerSecond) {}

PipeWireFeed::~PipeWireFeed() {
  if (!loop_) return;
  loop_->stop(stream_, streamListener_);
  disconnect();
  for (spa_source* source : {due_, retry_, shown_}) {
    if (source) pw_loop_destroy_source(loop_->loop(), source);
  }
}

Expected<void> PipeWireFeed::start() {
  auto loop = PipeWireLoop::create("tavrel.feed");
  if (!loop) return tl::unexpected(loop.error());
  loop_ = std::move(*loop);
  const PipeWireLoop::Lock lock(*loop_);
  const auto due = [](void* data, std::uint64_t) { static_cast<PipeWireFeed*>(data)->sendDue(); };
  due_ = pw_loop_add_timer(loop_->loop(), due, this);
  shown_ = pw_loop_add_event(loop_->loop(), due, this);
  retry_ = pw_loop_add_timer(
      loop_->loop(),
      [](void* data, std::uint64_t) {
        auto* self = static_cast<PipeWireFeed*>(data);
        self->disconnect();
        if (!self->connect()) self->retryLater();
      },
      this);
  if (auto connected = connect(); !connected) return connected;
  const bool isDecided = loop_->waitFor(kOpenNanoseconds, [this] { return isListed_ || error_; });
  if (error_) return tl::unexpected(*error_);
  isStarted_ = isDecided;
  if (isDecided) return {};
  return failure(CaptureErrorCode::deviceSilent, "the PipeWire service does not answer within five seconds");
}

Expected<void> PipeWireFeed::connect() {
  isLost_ = false;
  error_ = std::nullopt;
  if (auto connected = loop_->connect(); !connected) return connected;
  pw_core_add_listener(loop_->core(), &coreListener_, &kCoreEvents, this);
  const char* name = description_.name.c_str();
  stream_ = pw_stream_new(
      loop_->core(), name,
      pw_properties_new(PW_KEY_MEDIA_TYPE, "Video", PW_KEY_MEDIA_CLASS, "Video/Source", PW_KEY_MEDIA_ROLE, "Camera",
                        PW_KEY_NODE_NAME, name, PW_KEY_NODE_DESCRIPTION, name, PW_KEY_NODE_VIRTUAL, "true",
                        kFeedProcessKey, std::to_string(getpid()).c_str(), nullptr));
  if (!stream_) return failure(CaptureErrorCode::deviceFailed, "PipeWire gives no stream");
  pw_stream_add_listener(stream_, &streamListener_, &kStreamEvents, this);
  std::array<std::uint8_t, 4096> memory{};
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, memory.data(), memory.size());
  std::vector<const spa_pod*> parameters;
  for (const CameraFeedFormat format : description_.formats) {
    for (const Layout& layout : kLayouts) {
      if (layout.format == format) parameters.push_back(formatParameter(builder, description_, layout));
    }
  }
  const auto flags = static_cast<pw_stream_flags>(PW_STREAM_FLAG_DRIVER | PW_STREAM_FLAG_MAP_BUFFERS);
  const int result = pw_stream_connect(stream_, PW_DIRECTION_OUTPUT, PW_ID_ANY, flags, parameters.data(),
                                       static_cast<std::uint32_t>(parameters.size()));
  if (result >= 0) {
    links_.start(loop_->core(), stream_);
    return {};
  }
  return failure("posix", -result, fmt::format("PipeWire does not take the camera \"{}\"", description_.name));
}

void PipeWireFeed::disconnect() {
  links_.stop();
  if (stream_) pw_stream_destroy(std::exchange(stream_, nullptr));
  if (coreListener_.link.next) spa_hook_remove(&coreListener_);
  coreListener_ = {};
  loop_->disconnect();
  isListed_ = false;
}

void PipeWireFeed::retryLater() { setTimer(*loop_, retry_, kRetrySeconds * 1'000'000'000); }

/// What failed cannot be taken down inside its own event.
void PipeWireFeed::lose(Error error) {
  if (std::exchange(isLost_, true)) return;
  error_ = std::move(error);
  loop_->signal();
  setRead(false);
  if (!isStarted_) return;
  if (events_.failed) events_.failed(*error_);
  retryLater();
}

void PipeWireFeed::setRead(bool isRead) {
  if (isRead_.exchange(isRead) == isRead) return;
  if (!isRead) pictures_.forget();
  if (events_.readersChanged) events_.readersChanged(isRead);
}

void PipeWireFeed::show(std::shared_ptr<const PixelBufferSnapshot> picture) {
  pictures_.show(std::move(picture), monotonicNow());
  pw_loop_signal_event(loop_->loop(), shown_);
}

void PipeWireFeed::sendDue() {
  if (!isRead_) return;
  const std::int64_t now = monotonicNow();
  // Where something else drives the graph, `process` is called in its time.
  if (pictures_.wait(now) == 0) pw_stream_trigger_process(stream_);
  setTimer(*loop_, due_, pictures_.wait(monotonicNow()));
}

void PipeWireFeed::process() {
  const std::int64_t now = monotonicNow();
  const auto picture = format_ ? pictures_.take(now) : nullptr;
  if (!picture) return;
  pw_buffer* buffer = pw_stream_dequeue_buffer(stream_);
  const std::size_t stride = feedStride(*format_, description_.width);
  const std::size_t size = feedByteCount(*format_, stride, description_.height);
  if (!buffer) return pictures_.missed();
  spa_data& data = buffer->buffer->datas[0];
  const bool hasRoom = data.data && data.maxsize >= size;
  if (hasRoom) writeFeedPicture(*picture, *format_, static_cast<std::uint8_t*>(data.data), stride);
  data.chunk->offset = 0;
  data.chunk->size = hasRoom ? static_cast<std::uint32_t>(size) : 0;
  data.chunk->stride = static_cast<std::int32_t>(stride);
  data.chunk->flags = 0;
  auto* header = static_cast<spa_meta_header*>(
      spa_buffer_find_meta_data(buffer->buffer, SPA_META_Header, sizeof(spa_meta_header)));
  if (header) *header = {0, 0, now, 0, sequence_++};
  pw_stream_queue_buffer(stream_, buffer);
}

void PipeWireFeed::agree(const spa_pod& format) {
  spa_video_info_raw info{};
  format_ = std::nullopt;
  if (spa_format_video_raw_parse(&format, &info) < 0) return;
  for (const Layout& layout : kLayouts) {
    if (layout.name == info.format) format_ = layout.format;
  }
  if (!format_) return;
  const std::size_t stride = feedStride(*format_, description_.width);
  const auto size = static_cast<int>(feedByteCount(*format_, stride, description_.height));
  std::array<std::uint8_t, 1024> memory{};
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, memory.data(), memory.size());
  constexpr int kTypes = (1 << SPA_DATA_MemFd) | (1 << SPA_DATA_MemPtr);
  std::array<const spa_pod*, 2> parameters = {
      static_cast<const spa_pod*>(spa_pod_builder_add_object(
          &builder, SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers, SPA_PARAM_BUFFERS_buffers,
          SPA_POD_CHOICE_RANGE_Int(kBufferCount, 2, 16), SPA_PARAM_BUFFERS_blocks, SPA_POD_Int(1),
          SPA_PARAM_BUFFERS_size, SPA_POD_Int(size), SPA_PARAM_BUFFERS_stride, SPA_POD_Int(static_cast<int>(stride)),
          SPA_PARAM_BUFFERS_dataType, SPA_POD_CHOICE_FLAGS_Int(kTypes))),
      static_cast<const spa_pod*>(spa_pod_builder_add_object(
          &builder, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta, SPA_PARAM_META_type, SPA_POD_Id(SPA_META_Header),
          SPA_PARAM_META_size, SPA_POD_Int(static_cast<int>(sizeof(spa_meta_header)))))};
  pw_stream_update_params(stream_, parameters.data(), parameters.size());
}

void PipeWireFeed::coreError(void* data, std::uint32_t id, int, int result, const char* message) {
  if (id != PW_ID_CORE) return;
  static_cast<PipeWireFeed*>(data)->lose(
      {"posix", result != 0 ? -result : EIO, fmt::format("the PipeWire service failed: {}", message)});
}

void PipeWireFeed::stateChanged(void* data, pw_stream_state, pw_stream_state state, const char* message) {
  auto* self = static_cast<PipeWireFeed*>(data);
  if (state == PW_STREAM_STATE_ERROR) {
    return self->lose(makeError(CaptureErrorCode::deviceFailed,
                                fmt::format("the camera \"{}\" cannot be shown: {}", self->description_.name,
                                            message ? message : "no reason given")));
  }
  if (state == PW_STREAM_STATE_PAUSED || state == PW_STREAM_STATE_STREAMING) {
    self->isListed_ = true;
    self->loop_->signal();
  }
  self->setRead(state == PW_STREAM_STATE_STREAMING);
}

void PipeWireFeed::parameterChanged(void* data, std::uint32_t id, const spa_pod* parameter) {
  if (id == SPA_PARAM_Format && parameter) static_cast<PipeWireFeed*>(data)->agree(*parameter);
}

}  // namespace tavrel
