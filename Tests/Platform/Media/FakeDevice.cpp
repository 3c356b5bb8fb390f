#include "Platform/Media/FakeDevice.h"

#include <dlfcn.h>
#include <unistd.h>

#include <atomic>
#include <mutex>
#include <optional>
#include <set>
#include <string_view>

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavutil/opt.h>
}

namespace tavrel::test {
namespace {

constexpr std::string_view kEncoder = "h264_nvenc";
constexpr std::string_view kNode = "/dev/nvidia0";

std::mutex mutex;
std::optional<FakeDevice::Behaviour> present;
int taken = 0;
bool areColorsSeen = false;

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
  present = behaviour;
  taken = 0;
  areColorsSeen = false;
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

}  // namespace tavrel::test

// Before the libraries' own, for the library under test too.
using namespace tavrel::test;  // NOLINT: what follows has C's names

extern "C" __attribute__((visibility("default"))) int access(const char* path, int mode) {
  static const auto next = original<decltype(&access)>("access");
  const std::lock_guard lock(mutex);
  return present && path == kNode ? 0 : next(path, mode);
}

extern "C" __attribute__((visibility("default"))) const AVCodec* avcodec_find_encoder_by_name(const char* name) {
  static const auto next = original<decltype(&avcodec_find_encoder_by_name)>("avcodec_find_encoder_by_name");
  const std::lock_guard lock(mutex);
  return next(present && name == kEncoder ? "libx264" : name);
}

extern "C" __attribute__((visibility("default"))) int avcodec_open2(AVCodecContext* context, const AVCodec* codec,
                                                                    AVDictionary** options) {
  static const auto next = original<decltype(&avcodec_open2)>("avcodec_open2");
  bool hasHeaders = true;
  {
    const std::lock_guard lock(mutex);
    if (!present || !isDevices(context)) return next(context, codec, options);
    hasHeaders = !present->hasHeadersInPackets;
  }
  if (!hasHeaders) context->flags &= ~AV_CODEC_FLAG_GLOBAL_HEADER;
  AVDictionary* own = nullptr;
  av_dict_set(&own, "preset", "ultrafast", 0);
  av_dict_set(&own, "tune", "zerolatency", 0);
  const int result = next(context, codec, &own);
  av_dict_free(&own);
  return result;
}

extern "C" __attribute__((visibility("default"))) int avcodec_send_frame(AVCodecContext* context,
                                                                         const AVFrame* frame) {
  static const auto next = original<decltype(&avcodec_send_frame)>("avcodec_send_frame");
  return refuses(*context, frame) ? AVERROR_EXTERNAL : next(context, frame);
}
