#include <fmt/format.h>
#include <spa/param/param.h>
#include <spa/utils/result.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <cmath>
#include <cstring>
#include <stop_token>
#include <utility>

#include "Platform/Capture/CaptureError.h"
#include "Platform/Capture/PipeWire/Private/PipeWireDriver.h"
#include "Platform/Capture/PipeWire/Private/PipeWireNames.h"
#include "Platform/Capture/PipeWire/Private/PipeWirePictures.h"
#include "Platform/Capture/Private/CaptureTimes.h"
#include "Platform/Capture/Private/FrameRates.h"
#include "Platform/Capture/Private/SoundTimes.h"
#include "Platform/Media/AudioSession.h"

namespace tavrel {
namespace {

constexpr std::int64_t kOpenNanoseconds = 5'000'000'000;

}  // namespace

/// One opening. All but construction, `start` and destruction happens on the loop's thread.
class PipeWireDriver::Stream {
 public:
  Stream(const PipeWireDriver& driver, DeliveryRecord& delivery, CaptureRun run)
      : driver_(driver), delivery_(delivery), run_(std::move(run)) {
    frameRate_ = run_.frameRate;
  }

  ~Stream() {
    if (!loop_) return;
    {
      const PipeWireLoop::Lock lock(*loop_);
      isOpen_ = false;
      pictures_.end();
    }
    loop_->stop(stream_, streamListener_);
    if (stream_) pw_stream_destroy(stream_);
    if (coreListener_.link.next) spa_hook_remove(&coreListener_);
  }
  Stream(const Stream&) = delete;
  Stream& operator=(const Stream&) = delete;

  Expected<void> start() {
    auto loop = PipeWireLoop::create(isVideo() ? "tavrel.pwcam" : "tavrel.pwmic", driver_.node_.gate);
    if (!loop) return tl::unexpected(loop.error());
    loop_ = std::move(*loop);
    // Outlives the lock, which it may be waiting for.
    const std::stop_callback cancelled(run_.cancellation, [this] {
      const PipeWireLoop::Lock lock(*loop_);
      loop_->signal();
    });
    const PipeWireLoop::Lock lock(*loop_);
    if (auto connected = loop_->connect(); !connected) return connected;
    pw_core_add_listener(loop_->core(), &coreListener_, &kCoreEvents, this);
    if (auto made = connectStream(); !made) return made;
    const auto isCancelled = [this] { return run_.cancellation.stop_requested(); };
    const bool isDecided = loop_->waitFor(kOpenNanoseconds, [&] { return isStreaming_ || error_ || isCancelled(); });
    if (error_) return tl::unexpected(*error_);
    if (isCancelled()) return failure(CaptureErrorCode::stopped, "nobody wants the device any more");
    if (!isDecided) {
      return failure(CaptureErrorCode::deviceSilent,
                     fmt::format("{} has not started within five seconds", driver_.description_.localizedName));
    }
    isOpen_ = true;
    return {};
  }

  /// Any thread, without waiting for the loop's: that may wait for the caller's locks.
  void setFrameRate(double framesPerSecond) {
    const auto change = [](spa_loop*, bool, std::uint32_t, const void* data, std::size_t, void* self) {
      static_cast<Stream*>(self)->askForRate(*static_cast<const double*>(data));
      return 0;
    };
    pw_loop_invoke(loop_->loop(), change, 0, &framesPerSecond, sizeof framesPerSecond, false, this);
  }

 private:
  static const pw_core_events kCoreEvents;
  static const pw_stream_events kStreamEvents;

  bool isVideo() const { return driver_.description_.mediaType == MediaType::video; }

  Expected<void> connectStream() {
    pw_properties* properties =
        pw_properties_new(PW_KEY_MEDIA_TYPE, isVideo() ? "Video" : "Audio", PW_KEY_MEDIA_CATEGORY, "Capture",
                          PW_KEY_MEDIA_ROLE, isVideo() ? "Camera" : "Production", PW_KEY_TARGET_OBJECT,
                          driver_.node_.serial.c_str(), PW_KEY_NODE_DONT_RECONNECT, "true", nullptr);
    if (driver_.node_.isMonitor) pw_properties_set(properties, PW_KEY_STREAM_CAPTURE_SINK, "true");
    if (!isVideo()) pw_properties_set(properties, PW_KEY_NODE_LATENCY, "1024/48000");
    stream_ = pw_stream_new(loop_->core(), "TavrelCaptureBase", properties);
    if (!stream_) return failure(CaptureErrorCode::deviceFailed, "PipeWire gives no stream");
    pw_stream_add_listener(stream_, &streamListener_, &kStreamEvents, this);

    std::vector<std::uint8_t> memory = formatMemory();
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, memory.data(), static_cast<std::uint32_t>(memory.size()));
    auto parameters = isVideo() ? buildVideoFormats(builder, driver_.node_.modes, run_.format->dimensions, frameRate_)
                                : std::vector{buildAudioFormat(builder, run_.format->audioFormat)};
    const auto flags = static_cast<pw_stream_flags>(PW_STREAM_FLAG_AUTOCONNECT | PW_STREAM_FLAG_MAP_BUFFERS);
    const int result = pw_stream_connect(stream_, PW_DIRECTION_INPUT, PW_ID_ANY, flags, parameters.data(),
                                         static_cast<std::uint32_t>(parameters.size()));
    if (result >= 0) return {};
    return failure("posix", -result,
                   fmt::format("{} cannot be opened: {}", driver_.description_.localizedName, spa_strerror(result)));
  }

  std::vector<std::uint8_t> formatMemory() const {
    return std::vector<std::uint8_t>(std::size_t{1024} * (driver_.node_.modes.size() + 8));
  }

  void askForRate(double framesPerSecond) {
    if (framesPerSecond != frameRate_) ask(framesPerSecond);
  }

  void ask(double framesPerSecond) {
    std::vector<std::uint8_t> memory = formatMemory();
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, memory.data(), static_cast<std::uint32_t>(memory.size()));
    auto parameters = buildVideoFormats(builder, driver_.node_.modes, run_.format->dimensions, framesPerSecond,
                                        pictures_.loans().isRefused());
    pw_stream_update_params(stream_, parameters.data(), static_cast<std::uint32_t>(parameters.size()));
  }

  void fail(Error error) {
    if (error_) return;
    error_ = error;
    loop_->signal();
    if (isOpen_) run_.sink->didFail(std::move(error));
  }

  static void coreError(void* data, std::uint32_t id, int, int result, const char* message) {
    auto* self = static_cast<Stream*>(data);
    if (id != PW_ID_CORE) return;
    self->fail({"posix", result != 0 ? -result : EIO, fmt::format("the PipeWire service failed: {}", message)});
  }

  static void stateChanged(void* data, pw_stream_state old, pw_stream_state state, const char* message) {
    auto* self = static_cast<Stream*>(data);
    const std::string& name = self->driver_.description_.localizedName;
    if (state == PW_STREAM_STATE_ERROR) {
      self->fail(makeError(CaptureErrorCode::deviceFailed,
                           fmt::format("{} cannot be used: {}", name, message ? message : "no reason given")));
    } else if (state == PW_STREAM_STATE_UNCONNECTED && old != PW_STREAM_STATE_UNCONNECTED) {
      self->fail(unpluggedError(name));
    } else if (state == PW_STREAM_STATE_STREAMING) {
      self->isStreaming_ = true;
      self->loop_->signal();
    }
  }

  static void parameterChanged(void* data, std::uint32_t id, const spa_pod* parameter) {
    auto* self = static_cast<Stream*>(data);
    if (id != SPA_PARAM_Format || !parameter) return;
    if (self->isVideo()) self->agreeOnVideo(*parameter);
  }

  void agreeOnVideo(const spa_pod& parameter) {
    if (isToBeChosen(parameter)) return;
    const auto agreed = parseAgreedVideoFormat(parameter, frameRate_);
    if (!agreed) {
      return fail(makeError(
          CaptureErrorCode::unsupportedFormat,
          fmt::format("{} agreed on a format that it was not asked for", driver_.description_.localizedName)));
    }
    delivery_.begin({.format = pipeWireFormatName(parameter),
                     .dimensions = {agreed->frame.width, agreed->frame.height},
                     .framesPerSecond = frameRate_});
    if (auto begun = pictures_.begin(*agreed); !begun) return fail(begun.error());
    std::array<std::uint8_t, 1024> memory{};
    spa_pod_builder builder{};
    spa_pod_builder_init(&builder, memory.data(), memory.size());
    auto parameters = pictures_.parameters(builder);
    pw_stream_update_params(stream_, parameters.data(), static_cast<std::uint32_t>(parameters.size()));
  }

  static void process(void* data) {
    auto* self = static_cast<Stream*>(data);
    PipeWireLoans& loans = self->pictures_.loans();
    const bool wasRefused = loans.isRefused();
    while (pw_buffer* buffer = pw_stream_dequeue_buffer(self->stream_)) {
      // What comes before `open` has returned would reach a session that does not know it yet.
      if (self->isOpen_ && !self->error_) self->deliver(*buffer);
      if (!loans.isOut(*buffer)) pw_stream_queue_buffer(self->stream_, buffer);
    }
    for (pw_buffer* buffer : loans.takeReturned()) pw_stream_queue_buffer(self->stream_, buffer);
    if (loans.isRefused() && !wasRefused && self->pictures_.isOnlyForGPU()) self->ask(self->frameRate_);
  }

  void deliver(pw_buffer& buffer) {
    if (buffer.buffer->n_datas == 0 || !buffer.buffer->datas[0].chunk) return;
    if (isVideo()) return deliverPicture(buffer);
    const RawFrame::Plane block = pipeWirePlane(buffer.buffer->datas[0]);
    if (block.bytes) deliverSound(block.bytes, block.byteCount);
  }

  void deliverPicture(pw_buffer& buffer) {
    const auto* header = static_cast<const spa_meta_header*>(
        spa_buffer_find_meta_data(buffer.buffer, SPA_META_Header, sizeof(spa_meta_header)));
    const spa_data& first = buffer.buffer->datas[0];
    const auto age = stamps_.ageOf(header ? header->pts : 0);
    delivery_.note(&CaptureDelivery::memory, pipeWireMemoryName(first.type));
    delivery_.note(&CaptureDelivery::isStamped, age.has_value());
    const SampleTiming timing = {frameDurationOf(frameRate_), captureTimeOf(age), MediaTime::invalid()};
    const bool isDamaged = (header && (header->flags & SPA_META_HEADER_FLAG_CORRUPTED) != 0) ||
                           (first.chunk->flags & SPA_CHUNK_FLAG_CORRUPTED) != 0;
    if (isDamaged) return lose("a picture came damaged", timing);
    auto sample = pictures_.pictureOf(buffer, timing);
    if (!sample) return lose(sample.error().description, timing);
    // One that is copied because others are kept does not change what is said.
    if (pictures_.isInPlace()) delivery_.note(&CaptureDelivery::isInPlace, true);
    run_.sink->didCapture(std::move(*sample));
  }

  void lose(std::string reason, const SampleTiming& timing) {
    delivery_.note(&CaptureDelivery::loss, std::move(reason));
    run_.sink->didDrop(timing);
  }

  void deliverSound(const std::uint8_t* bytes, std::size_t size) {
    const AudioFormat& format = run_.format->audioFormat;
    const std::size_t count = size / format.bytesPerFrame();
    if (count == 0) return;
    auto list = AudioBufferList::create(format, count);
    if (!list) return;
    std::memcpy(list->buffers().front().data, bytes, count * format.bytesPerFrame());
    const MediaTime time = timeOfSound(count);
    if (auto sample = SampleBuffer::createAudio(format, std::move(list), static_cast<std::int64_t>(count), time)) {
      run_.sink->didCapture(std::move(*sample));
    }
  }

  /// When the first of `count` samples was heard.
  MediaTime timeOfSound(std::size_t count) {
    const double length = static_cast<double>(count) / run_.format->audioFormat.sampleRate;
    pw_time measured{};
    double delay = 0;
    if (pw_stream_get_time_n(stream_, &measured, sizeof measured) == 0 && measured.rate.denom > 0) {
      delay = static_cast<double>(measured.delay) * measured.rate.num / measured.rate.denom;
    }
    const auto age = ageOfCapture(measured.now);
    delivery_.note(&CaptureDelivery::isStamped, age.has_value());
    const MediaTime end = captureTimeOf(age);
    return soundTimes_.next(end - MediaTime::fromSeconds(length + std::clamp(delay, 0.0, 1.0), end.timescale), length);
  }

  const PipeWireDriver& driver_;
  DeliveryRecord& delivery_;
  const CaptureRun run_;
  std::unique_ptr<PipeWireLoop> loop_;
  spa_hook coreListener_{};
  spa_hook streamListener_{};
  pw_stream* stream_ = nullptr;
  bool isStreaming_ = false;
  bool isOpen_ = false;
  std::optional<Error> error_;
  double frameRate_ = 30;
  PipeWirePictures pictures_;
  CaptureStamps stamps_;
  SoundTimes soundTimes_;
};

const pw_core_events PipeWireDriver::Stream::kCoreEvents = [] {
  pw_core_events events{};
  events.version = PW_VERSION_CORE_EVENTS;
  events.error = coreError;
  return events;
}();

const pw_stream_events PipeWireDriver::Stream::kStreamEvents = [] {
  pw_stream_events events{};
  events.version = PW_VERSION_STREAM_EVENTS;
  events.state_changed = stateChanged;
  events.param_changed = parameterChanged;
  events.process = process;
  events.add_buffer = [](void* data, pw_buffer* buffer) { static_cast<Stream*>(data)->pictures_.add(*buffer); };
  events.remove_buffer = [](void* data, pw_buffer* buffer) { static_cast<Stream*>(data)->pictures_.remove(*buffer); };
  return events;
}();

PipeWireDriver::PipeWireDriver(CaptureDeviceDescription description, Node node,
                               std::shared_ptr<const PipeWireDefaults> defaults)
    : description_(std::move(description)), node_(std::move(node)), defaults_(std::move(defaults)) {}

PipeWireDriver::~PipeWireDriver() = default;

Expected<void> PipeWireDriver::open(CaptureRun run) {
  const std::lock_guard operation(operation_);
  if (stream_) {
    return failure(CaptureErrorCode::busy, fmt::format("{} is used by another session", description_.localizedName));
  }
  const AudioFormat format = run.format->audioFormat;
  if (description_.mediaType == MediaType::audio) delivery_.begin({.format = "F32", .isStamped = true});
  if (node_.controls) {
    for (const CaptureControl control : kCaptureControls) node_.controls->apply(control, run.controls);
  }
  auto stream = std::make_unique<Stream>(*this, delivery_, std::move(run));
  if (auto started = stream->start(); !started) return started;
  if (description_.mediaType == MediaType::audio) AudioSession::shared().setSampleRate(format.sampleRate);
  stream_ = std::move(stream);
  return {};
}

std::shared_ptr<const CaptureDeviceFormat> PipeWireDriver::formatOfSize(CaptureVideoDimensions dimensions) {
  return coveringFormat(node_.modes, dimensions, node_.controls ? node_.controls->largestZoom() : 1);
}

void PipeWireDriver::close() {
  const std::lock_guard operation(operation_);
  stream_ = nullptr;
}

void PipeWireDriver::setFrameRate(double framesPerSecond) {
  const std::unique_lock operation(operation_, std::try_to_lock);
  // While it opens or closes the session compares the rate afterwards.
  if (operation.owns_lock() && stream_ && description_.mediaType == MediaType::video) {
    stream_->setFrameRate(framesPerSecond);
  }
}

}  // namespace tavrel
