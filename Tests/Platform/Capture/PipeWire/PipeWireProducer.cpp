#include "PipeWireProducer.h"

#include <spa/param/buffers.h>
#include <spa/param/param.h>
#include <spa/param/props.h>
#include <spa/param/video/format-utils.h>
#include <spa/pod/builder.h>
#include <spa/pod/iter.h>
#include <sys/mman.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <cstring>
#include <stdexcept>
#include <vector>

namespace tavrel::test {
namespace {

/// Of a camera without a steady rate.
constexpr int kUsualRate = 30;

}  // namespace

const pw_stream_events PipeWireProducer::kEvents = [] {
  pw_stream_events events{};
  events.version = PW_VERSION_STREAM_EVENTS;
  events.param_changed = [](void* data, std::uint32_t id, const spa_pod* parameter) {
    if (parameter && id == SPA_PARAM_Format) static_cast<PipeWireProducer*>(data)->agree(*parameter);
    if (parameter && id == SPA_PARAM_Props) static_cast<PipeWireProducer*>(data)->note(*parameter);
  };
  events.add_buffer = [](void* data, pw_buffer* buffer) { static_cast<PipeWireProducer*>(data)->allocate(*buffer); };
  events.remove_buffer = [](void*, pw_buffer* buffer) {
    for (std::uint32_t i = 0; i < buffer->buffer->n_datas; ++i) {
      const spa_data& data = buffer->buffer->datas[i];
      munmap(data.data, data.maxsize);
      close(static_cast<int>(data.fd));
    }
  };
  events.process = [](void* data) { static_cast<PipeWireProducer*>(data)->process(); };
  return events;
}();

PipeWireProducer::PipeWireProducer(Kind kind) : kind_(std::move(kind)) {
  pw_init(nullptr, nullptr);
  loop_ = pw_thread_loop_new("test.camera", nullptr);
  auto* properties = pw_properties_new(PW_KEY_MEDIA_CLASS, "Video/Source", PW_KEY_MEDIA_ROLE, "Camera",
                                       PW_KEY_NODE_NAME, kind_.name.c_str(), nullptr);
  for (const auto& [key, value] : kind_.nodeProperties) pw_properties_set(properties, key.c_str(), value.c_str());
  stream_ = pw_stream_new_simple(pw_thread_loop_get_loop(loop_), kind_.name.c_str(), properties, &kEvents, this);
  std::array<std::uint8_t, 8192> memory{};
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, memory.data(), memory.size());
  std::vector<const spa_pod*> parameters;
  if (!kind_.modifiers.empty()) parameters.push_back(formatOf(builder, true));
  if (kind_.isPlain) parameters.push_back(formatOf(builder, false));
  for (const Property& property : kind_.properties) parameters.push_back(propertyOf(builder, property));
  const auto flags = static_cast<pw_stream_flags>(PW_STREAM_FLAG_DRIVER | PW_STREAM_FLAG_ALLOC_BUFFERS);
  if (pw_stream_connect(stream_, PW_DIRECTION_OUTPUT, PW_ID_ANY, flags, parameters.data(),
                        static_cast<std::uint32_t>(parameters.size())) < 0) {
    throw std::runtime_error("the daemon takes no camera");
  }
  timer_ = pw_loop_add_timer(
      pw_thread_loop_get_loop(loop_),
      [](void* data, std::uint64_t) {
        auto* self = static_cast<PipeWireProducer*>(data);
        if (!self->isPaused_ && pw_stream_get_state(self->stream_, nullptr) == PW_STREAM_STATE_STREAMING) {
          pw_stream_trigger_process(self->stream_);
        }
      },
      this);
  timespec interval{0, 1'000'000'000 / (kind_.framesPerSecond > 0 ? kind_.framesPerSecond : kUsualRate)};
  pw_loop_update_timer(pw_thread_loop_get_loop(loop_), timer_, &interval, &interval, false);
  pw_thread_loop_start(loop_);
}

PipeWireProducer::~PipeWireProducer() {
  pw_thread_loop_lock(loop_);
  pw_stream_disconnect(stream_);
  pw_thread_loop_unlock(loop_);
  pw_thread_loop_stop(loop_);
  pw_loop_destroy_source(pw_thread_loop_get_loop(loop_), timer_);
  pw_stream_destroy(stream_);
  pw_thread_loop_destroy(loop_);
}

std::size_t PipeWireProducer::stride() const {
  if (kind_.rowBytes > 0) return kind_.rowBytes;
  return static_cast<std::size_t>(kind_.width) * (planeCount() == 2 ? 1 : 4) + kind_.padding;
}

const spa_pod* PipeWireProducer::formatOf(spa_pod_builder& builder, bool hasModifiers,
                                          std::optional<std::int64_t> chosen) const {
  const spa_rectangle size = {static_cast<std::uint32_t>(kind_.width), static_cast<std::uint32_t>(kind_.height)};
  const spa_fraction rate = {static_cast<std::uint32_t>(kind_.framesPerSecond), 1};
  const spa_fraction most = {static_cast<std::uint32_t>(kind_.mostPerSecond), 1};
  spa_pod_frame frame{};
  spa_pod_builder_push_object(&builder, &frame, SPA_TYPE_OBJECT_Format, SPA_PARAM_EnumFormat);
  spa_pod_builder_add(&builder, SPA_FORMAT_mediaType, SPA_POD_Id(SPA_MEDIA_TYPE_video), SPA_FORMAT_mediaSubtype,
                      SPA_POD_Id(kind_.isH264 ? SPA_MEDIA_SUBTYPE_h264 : SPA_MEDIA_SUBTYPE_raw), 0);
  if (kind_.sizes) {
    const auto& [least, largest, step] = *kind_.sizes;
    if (step.width == 0) {
      spa_pod_builder_add(&builder, SPA_FORMAT_VIDEO_size, SPA_POD_CHOICE_RANGE_Rectangle(&size, &least, &largest), 0);
    } else {
      spa_pod_builder_add(&builder, SPA_FORMAT_VIDEO_size,
                          SPA_POD_CHOICE_STEP_Rectangle(&size, &least, &largest, &step), 0);
    }
  } else {
    spa_pod_builder_add(&builder, SPA_FORMAT_VIDEO_size, SPA_POD_Rectangle(&size), 0);
  }
  if (kind_.rates) {
    spa_pod_builder_add(&builder, SPA_FORMAT_VIDEO_framerate,
                        SPA_POD_CHOICE_RANGE_Fraction(&rate, &kind_.rates->least, &kind_.rates->most), 0);
  } else {
    spa_pod_builder_add(&builder, SPA_FORMAT_VIDEO_framerate, SPA_POD_Fraction(&rate), 0);
  }
  if (kind_.mostPerSecond > 0) spa_pod_builder_add(&builder, SPA_FORMAT_VIDEO_maxFramerate, SPA_POD_Fraction(&most), 0);
  if (kind_.range != SPA_VIDEO_COLOR_RANGE_UNKNOWN) {
    spa_pod_builder_add(&builder, SPA_FORMAT_VIDEO_colorRange, SPA_POD_Id(kind_.range), 0);
  }
  if (!kind_.isH264) spa_pod_builder_add(&builder, SPA_FORMAT_VIDEO_format, SPA_POD_Id(kind_.format), 0);
  if (chosen) {
    spa_pod_builder_prop(&builder, SPA_FORMAT_VIDEO_modifier, SPA_POD_PROP_FLAG_MANDATORY);
    spa_pod_builder_long(&builder, *chosen);
  } else if (hasModifiers) {
    spa_pod_frame choice{};
    const std::uint32_t open = kind_.choosesModifier ? SPA_POD_PROP_FLAG_DONT_FIXATE : 0;
    spa_pod_builder_prop(&builder, SPA_FORMAT_VIDEO_modifier, SPA_POD_PROP_FLAG_MANDATORY | open);
    spa_pod_builder_push_choice(&builder, &choice, SPA_CHOICE_Enum, 0);
    spa_pod_builder_long(&builder, kind_.modifiers.front());
    for (const std::int64_t modifier : kind_.modifiers) spa_pod_builder_long(&builder, modifier);
    spa_pod_builder_pop(&builder, &choice);
  }
  return static_cast<const spa_pod*>(spa_pod_builder_pop(&builder, &frame));
}

const spa_pod* PipeWireProducer::propertyOf(spa_pod_builder& builder, const Property& property) const {
  spa_pod_frame frame{};
  spa_pod_builder_push_object(&builder, &frame, SPA_TYPE_OBJECT_PropInfo, SPA_PARAM_PropInfo);
  spa_pod_builder_add(&builder, SPA_PROP_INFO_id, SPA_POD_Id(property.id), SPA_PROP_INFO_description,
                      SPA_POD_String(property.description), 0);
  spa_pod_builder_prop(&builder, SPA_PROP_INFO_type, 0);
  spa_pod_frame choice{};
  const auto& values = property.values;
  spa_pod_builder_push_choice(&builder, &choice, values.size() == 2 ? SPA_CHOICE_Range : SPA_CHOICE_Enum, 0);
  if (values.empty()) {
    for (const bool value : {true, true, false}) spa_pod_builder_bool(&builder, value);
  } else {
    spa_pod_builder_int(&builder, values.front());
    for (const int value : values) spa_pod_builder_int(&builder, value);
  }
  spa_pod_builder_pop(&builder, &choice);
  return static_cast<const spa_pod*>(spa_pod_builder_pop(&builder, &frame));
}

void PipeWireProducer::change(spa_video_format format, int width, int height) {
  pw_thread_loop_lock(loop_);
  kind_.format = format;
  kind_.width = width;
  kind_.height = height;
  kind_.sizes.reset();
  std::array<std::uint8_t, 2048> memory{};
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, memory.data(), memory.size());
  const spa_pod* parameter = formatOf(builder, false);
  pw_stream_update_params(stream_, &parameter, 1);
  pw_thread_loop_unlock(loop_);
}

void PipeWireProducer::agree(const spa_pod& format) {
  spa_video_info_raw info{};
  if (!kind_.isH264 && spa_format_video_raw_parse(&format, &info) >= 0) {
    kind_.width = static_cast<int>(info.size.width);
    kind_.height = static_cast<int>(info.size.height);
  }
  const spa_pod_prop* modifier = spa_pod_find_prop(&format, nullptr, SPA_FORMAT_VIDEO_modifier);
  if (modifier && (modifier->flags & SPA_POD_PROP_FLAG_DONT_FIXATE) != 0) return choose(*modifier);
  {
    const std::lock_guard lock(mutex_);
    std::uint32_t count = 0;
    std::uint32_t choice = 0;
    const spa_pod* value = modifier ? spa_pod_get_values(&modifier->value, &count, &choice) : nullptr;
    modifier_ = value ? std::optional(*static_cast<const std::int64_t*>(SPA_POD_BODY_CONST(value))) : std::nullopt;
  }
  std::array<std::uint8_t, 2048> memory{};
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, memory.data(), memory.size());
  const int types = 1 << (modifier || kind_.isDmaBuf ? SPA_DATA_DmaBuf : SPA_DATA_MemFd);
  const auto meta = [&](spa_meta_type type, std::size_t size) {
    return static_cast<const spa_pod*>(
        spa_pod_builder_add_object(&builder, SPA_TYPE_OBJECT_ParamMeta, SPA_PARAM_Meta, SPA_PARAM_META_type,
                                   SPA_POD_Id(type), SPA_PARAM_META_size, SPA_POD_Int(static_cast<int>(size))));
  };
  std::vector<const spa_pod*> parameters = {static_cast<const spa_pod*>(spa_pod_builder_add_object(
      &builder, SPA_TYPE_OBJECT_ParamBuffers, SPA_PARAM_Buffers, SPA_PARAM_BUFFERS_buffers,
      SPA_POD_CHOICE_RANGE_Int(kind_.bufferCount, 2, kind_.bufferCount), SPA_PARAM_BUFFERS_blocks,
      SPA_POD_Int(static_cast<int>(planeCount())), SPA_PARAM_BUFFERS_size, SPA_POD_Int(static_cast<int>(blockSize())),
      SPA_PARAM_BUFFERS_stride, SPA_POD_Int(static_cast<int>(stride())), SPA_PARAM_BUFFERS_dataType,
      SPA_POD_CHOICE_FLAGS_Int(types)))};
  parameters.push_back(meta(SPA_META_Header, sizeof(spa_meta_header)));
  if (kind_.crop) parameters.push_back(meta(SPA_META_VideoCrop, sizeof(spa_meta_region)));
  parameters.push_back(meta(SPA_META_VideoTransform, sizeof(spa_meta_videotransform)));
  pw_stream_update_params(stream_, parameters.data(), static_cast<std::uint32_t>(parameters.size()));
}

void PipeWireProducer::choose(const spa_pod_prop& modifiers) {
  std::uint32_t count = 0;
  std::uint32_t choice = 0;
  const auto* const values =
      static_cast<const std::int64_t*>(SPA_POD_BODY_CONST(spa_pod_get_values(&modifiers.value, &count, &choice)));
  std::array<std::uint8_t, 4096> memory{};
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, memory.data(), memory.size());
  std::vector<const spa_pod*> parameters = {formatOf(builder, true, values[count - 1]), formatOf(builder, true)};
  if (kind_.isPlain) parameters.push_back(formatOf(builder, false));
  pw_stream_update_params(stream_, parameters.data(), static_cast<std::uint32_t>(parameters.size()));
}

void PipeWireProducer::note(const spa_pod& properties) {
  const std::lock_guard lock(mutex_);
  std::vector<std::uint8_t> bytes(sizeof(spa_pod) + properties.size);
  std::memcpy(bytes.data(), &properties, bytes.size());
  auto* const object = static_cast<spa_pod_object*>(static_cast<void*>(bytes.data()));
  spa_pod_prop* property = nullptr;
  SPA_POD_OBJECT_FOREACH(object, property) {
    std::int32_t number = 0;
    bool isOn = false;
    if (spa_pod_get_int(&property->value, &number) >= 0) settings_.emplace_back(property->key, number);
    if (spa_pod_get_bool(&property->value, &isOn) >= 0) settings_.emplace_back(property->key, isOn ? 1 : 0);
  }
}

void PipeWireProducer::allocate(pw_buffer& buffer) const {
  for (std::uint32_t i = 0; i < buffer.buffer->n_datas; ++i) {
    spa_data& data = buffer.buffer->datas[i];
    const bool isDevice = (data.type & 1U << SPA_DATA_DmaBuf) != 0;
    data.type = isDevice ? SPA_DATA_DmaBuf : SPA_DATA_MemFd;
    data.flags = SPA_DATA_FLAG_READWRITE;
    data.fd = memfd_create("picture", MFD_CLOEXEC);
    data.mapoffset = 0;
    data.maxsize = static_cast<std::uint32_t>(blockSize());
    if (ftruncate(static_cast<int>(data.fd), data.maxsize) != 0) return;
    data.data = mmap(nullptr, data.maxsize, PROT_READ | PROT_WRITE, MAP_SHARED, static_cast<int>(data.fd), 0);
  }
}

void PipeWireProducer::process() {
  // Those that a reader keeps are met again each time round.
  pw_buffer* buffer = pw_stream_dequeue_buffer(stream_);
  for (int i = 1; !buffer && errno == EBUSY && i < kind_.bufferCount; ++i) buffer = pw_stream_dequeue_buffer(stream_);
  if (!buffer) {
    ++missed_;
    return;
  }
  for (std::uint32_t i = 0; i < buffer->buffer->n_datas; ++i) {
    const spa_data& data = buffer->buffer->datas[i];
    auto* const bytes = static_cast<std::uint8_t*>(data.data) + kind_.offset;
    if (kind_.paint) kind_.paint(bytes, kind_.width, kind_.height, stride());
    const std::size_t used = kind_.paint ? blockSize() - kind_.offset : kind_.draw(i, bytes, stride(), sequence_);
    data.chunk->offset = static_cast<std::uint32_t>(kind_.offset);
    data.chunk->size = static_cast<std::uint32_t>(used);
    data.chunk->stride = kind_.saysStride ? static_cast<std::int32_t>(stride()) : 0;
    data.chunk->flags = 0;
  }
  ++sequence_;
  auto* crop = static_cast<spa_meta_region*>(
      spa_buffer_find_meta_data(buffer->buffer, SPA_META_VideoCrop, sizeof(spa_meta_region)));
  if (crop && kind_.crop) crop->region = *kind_.crop;
  auto* transform = static_cast<spa_meta_videotransform*>(
      spa_buffer_find_meta_data(buffer->buffer, SPA_META_VideoTransform, sizeof(spa_meta_videotransform)));
  if (transform) transform->transform = kind_.transform;
  auto* header = static_cast<spa_meta_header*>(
      spa_buffer_find_meta_data(buffer->buffer, SPA_META_Header, sizeof(spa_meta_header)));
  if (header) *header = {};
  if (header && kind_.spoil) kind_.spoil(*buffer->buffer, *header, sequence_);
  pw_stream_queue_buffer(stream_, buffer);
}

std::optional<std::int64_t> PipeWireProducer::modifier() const {
  const std::lock_guard lock(mutex_);
  return modifier_;
}

std::vector<std::pair<std::uint32_t, int>> PipeWireProducer::settings() const {
  const std::lock_guard lock(mutex_);
  return settings_;
}

}  // namespace tavrel::test
