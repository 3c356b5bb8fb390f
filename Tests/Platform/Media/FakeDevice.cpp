#include "Platform/Media/FakeDevice.h"

#include <dlfcn.h>
#include <unistd.h>

#include <algorithm>
#include <mutex>
#include <optional>
#include <set>
#include <string_view>
#include <utility>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/hwcontext.h>
#include <libavutil/opt.h>
}

namespace tavrel::test {
namespace {

std::mutex mutex;
std::optional<FakeDevice::Behaviour> present;
int taken = 0;
bool areColorsSeen = false;
std::string lastNode;

template <typename Function>
Function original(const char* name) {
  return reinterpret_cast<Function>(::dlsym(RTLD_NEXT, name));
}

bool isDevices(const AVCodecContext* context) { return context->pix_fmt == AV_PIX_FMT_NV12; }

bool hasColors(const AVFrame& frame) {
  std::set<std::uint8_t> values;
  for (int column = 0; column < frame.width; ++column) {
    values.insert(frame.data[1][frame.height / 4 * frame.linesize[1] + column]);
    values.insert(frame.data[1][column]);
  }
  return values.size() > 1;
}

/// Whether the device refuses the picture.
bool refuses(const AVCodecContext& context, const AVFrame* frame) {
  const std::lock_guard lock(mutex);
  if (!present || !isDevices(&context) || !frame) return false;
  if (static_cast<double>(frame->pts) * av_q2d(context.time_base) >= present->failsAt) return true;
  if (frame->pts == 0) areColorsSeen = areColorsSeen || hasColors(*frame);
  if (frame->pts > 0) ++taken;
  return false;
}

}  // namespace

FakeDevice::FakeDevice(Behaviour behaviour) {
  const std::lock_guard lock(mutex);
  present = std::move(behaviour);
  taken = 0;
  areColorsSeen = false;
  lastNode.clear();
}

FakeDevice::~FakeDevice() {
  const std::lock_guard lock(mutex);
  present.reset();
}

int FakeDevice::pictures() const {
  const std::lock_guard lock(mutex);
  return taken;
}

bool FakeDevice::hasSeenColors() const {
  const std::lock_guard lock(mutex);
  return areColorsSeen;
}

std::string FakeDevice::node() const {
  const std::lock_guard lock(mutex);
  return lastNode;
}

}  // namespace tavrel::test

// Before the libraries' own, for the library under test too.
using namespace tavrel::test;  // NOLINT: what follows has C's names

extern "C" __attribute__((visibility("default"))) int access(const char* path, int mode) {
  static const auto next = original<decltype(&access)>("access");
  const std::lock_guard lock(mutex);
  const bool isNode = present && std::find(present->nodes.begin(), present->nodes.end(), path) != present->nodes.end();
  return isNode ? 0 : next(path, mode);
}

extern "C" __attribute__((visibility("default"))) const AVCodec* avcodec_find_encoder_by_name(const char* name) {
  static const auto next = original<decltype(&avcodec_find_encoder_by_name)>("avcodec_find_encoder_by_name");
  const std::lock_guard lock(mutex);
  return next(present && name == present->encoder ? "libx264" : name);
}

extern "C" __attribute__((visibility("default"))) int avcodec_open2(AVCodecContext* context, const AVCodec* codec,
                                                                    AVDictionary** options) {
  static const auto next = original<decltype(&avcodec_open2)>("avcodec_open2");
  const bool isVaapi = context->pix_fmt == AV_PIX_FMT_VAAPI;
  bool hasHeaders = true;
  {
    const std::lock_guard lock(mutex);
    if (!present || (!isDevices(context) && !isVaapi)) return next(context, codec, options);
    hasHeaders = !present->hasHeadersInPackets;
    const auto has = [&](const char* key, std::string_view value) {
      const AVDictionaryEntry* const entry = av_dict_get(*options, key, nullptr, 0);
      return entry && entry->value == value;
    };
    if (isVaapi && has("low_power", "1") != present->isLowPower) return AVERROR(ENOSYS);
    if (isVaapi && !present->hasCap && !has("rc_mode", "CQP")) return AVERROR(EINVAL);
  }
  if (!hasHeaders) context->flags &= ~AV_CODEC_FLAG_GLOBAL_HEADER;
  AVBufferRef* const frames = std::exchange(context->hw_frames_ctx, nullptr);
  context->pix_fmt = AV_PIX_FMT_NV12;
  AVDictionary* own = nullptr;
  av_dict_set(&own, "preset", "ultrafast", 0);
  av_dict_set(&own, "tune", "zerolatency", 0);
  const int result = next(context, codec, &own);
  av_dict_free(&own);
  context->hw_frames_ctx = frames;
  return result;
}

extern "C" __attribute__((visibility("default"))) int avcodec_send_frame(AVCodecContext* context,
                                                                         const AVFrame* frame) {
  static const auto next = original<decltype(&avcodec_send_frame)>("avcodec_send_frame");
  return refuses(*context, frame) ? AVERROR_EXTERNAL : next(context, frame);
}

// VAAPI's frames are the memory's own.
extern "C" __attribute__((visibility("default"))) int av_hwdevice_ctx_create(AVBufferRef** device, AVHWDeviceType,
                                                                             const char* node, AVDictionary*, int) {
  const std::lock_guard lock(mutex);
  if (!present || (!present->openNode.empty() && present->openNode != node)) return AVERROR(ENODEV);
  lastNode = node;
  *device = av_buffer_allocz(1);
  return 0;
}

extern "C" __attribute__((visibility("default"))) AVBufferRef* av_hwframe_ctx_alloc(AVBufferRef*) {
  return av_buffer_allocz(sizeof(AVHWFramesContext));
}

extern "C" __attribute__((visibility("default"))) int av_hwframe_ctx_init(AVBufferRef* frames) {
  const auto& description = *reinterpret_cast<const AVHWFramesContext*>(frames->data);
  return description.format == AV_PIX_FMT_VAAPI && description.sw_format == AV_PIX_FMT_NV12 ? 0 : AVERROR(EINVAL);
}

extern "C" __attribute__((visibility("default"))) int av_hwframe_get_buffer(AVBufferRef* frames, AVFrame* frame, int) {
  const auto& description = *reinterpret_cast<const AVHWFramesContext*>(frames->data);
  frame->format = description.sw_format;
  frame->width = description.width;
  frame->height = description.height;
  return av_frame_get_buffer(frame, 0);
}

extern "C" __attribute__((visibility("default"))) int av_hwframe_transfer_data(AVFrame* to, const AVFrame* from, int) {
  return from->format == AV_PIX_FMT_NV12 ? av_frame_copy(to, from) : AVERROR(ENOSYS);
}
