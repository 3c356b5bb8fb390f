#include "Platform/Media/Private/Writing/VideoEncoderKind.h"

#include <fmt/format.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <thread>

namespace tavrel {
namespace {

constexpr const char* kNvidiaNode = "/dev/nvidia0";

// 12 is as good as it gets, 20 (the default) is hard to tell from the original, 44 is coarse.
double quantizer(const VideoSettings& settings) { return 12 + (1 - settings.quality) * 32; }

double pixelsASecond(const VideoEncoderOptions& wanted) {
  return static_cast<double>(wanted.settings.width) * wanted.settings.height * av_q2d(wanted.frameRate);
}

/// What constant quality may cost at most: more than films need, less than noise would take.
std::int64_t mostBitRate(const VideoEncoderOptions& wanted) {
  const double bitsAPixel = wanted.settings.codec == AV_CODEC_ID_H264 ? 0.35 : 0.25;
  const double better = std::exp2((20 - quantizer(wanted.settings)) / 6);
  return std::llround(500'000 + pixelsASecond(wanted) * bitsAPixel * better);
}

int processors() { return static_cast<int>(std::max(1U, std::thread::hardware_concurrency())); }

void limitRate(AVCodecContext& context, const VideoEncoderOptions& wanted) {
  context.rc_max_rate = mostBitRate(wanted);
  context.rc_buffer_size = static_cast<int>(std::min<std::int64_t>(context.rc_max_rate * 2, 1'000'000'000));
}

void setPreset(AVDictionary*& options, const VideoEncoderOptions& wanted, const char* fast, const char* thorough) {
  const std::string& asked = wanted.settings.preset;
  av_dict_set(&options, "preset", asked.empty() ? (wanted.isRealTime ? fast : thorough) : asked.c_str(), 0);
}

void setConstantQuality(AVDictionary*& options, AVCodecContext& context, const VideoEncoderOptions& wanted) {
  if (wanted.settings.averageBitRate) return;
  av_dict_set(&options, "crf", std::to_string(quantizer(wanted.settings)).c_str(), 0);
  limitRate(context, wanted);
}

void setX264Options(AVDictionary*& options, AVCodecContext& context, const VideoEncoderOptions& wanted) {
  setPreset(options, wanted, "veryfast", "faster");
  setConstantQuality(options, context, wanted);
  // A bit rate is kept by the frames' own times; otherwise the frame rate tells the level and the timing that is
  // announced, which a time base as fine as the movie's would not.
  std::string parameters = wanted.settings.averageBitRate ? "force-cfr=0" : "force-cfr=1";
  if (wanted.pictures.fieldOrder == AV_FIELD_BB) parameters += ":bff=1";
  if (wanted.isRealTime) {
    // What is looked ahead, and each thread's frame, an end by force takes along: no more threads than keep up. One
    // encodes some 25 million pixels a second.
    context.thread_count = std::clamp(1 + static_cast<int>(std::ceil(pixelsASecond(wanted) / 25e6)), 2, 16);
    parameters += fmt::format(":rc-lookahead={}:sync-lookahead=0", liveLookahead(wanted.frameRate));
  }
  av_dict_set(&options, "x264-params", parameters.c_str(), 0);
}

void setX265Options(AVDictionary*& options, AVCodecContext& context, const VideoEncoderOptions& wanted) {
  setPreset(options, wanted, "ultrafast", "fast");
  setConstantQuality(options, context, wanted);
  std::string parameters = "log-level=none";
  const ColorVolume& volume = wanted.pictures.volume;
  if (!volume.masteringDisplay.empty()) parameters += ":master-display=" + volume.masteringDisplay;
  if (!volume.contentLight.empty()) parameters += ":max-cll=" + volume.contentLight;
  if (wanted.isRealTime) parameters += fmt::format(":rc-lookahead={}:frame-threads=2", liveLookahead(wanted.frameRate));
  av_dict_set(&options, "x265-params", parameters.c_str(), 0);
}

/// The two of the codings that are free of fees. Their quantizers go to 63.
void setFreeOptions(AVDictionary*& options, AVCodecContext& context, const VideoEncoderOptions& wanted) {
  context.thread_count = std::min(processors(), 16);
  av_dict_set_int(&options, "row-mt", 1, 0);
  if (wanted.isRealTime) av_dict_set_int(&options, "lag-in-frames", 0, 0);
  if (wanted.settings.averageBitRate) return;
  av_dict_set_int(&options, "crf", std::lround(quantizer(wanted.settings) * 1.5), 0);
  context.bit_rate = mostBitRate(wanted);
}

void setAomOptions(AVDictionary*& options, AVCodecContext& context, const VideoEncoderOptions& wanted) {
  setFreeOptions(options, context, wanted);
  av_dict_set(&options, "usage", wanted.isRealTime ? "realtime" : "good", 0);
  av_dict_set(&options, "cpu-used", wanted.isRealTime ? "8" : "6", 0);
}

void setVpxOptions(AVDictionary*& options, AVCodecContext& context, const VideoEncoderOptions& wanted) {
  setFreeOptions(options, context, wanted);
  av_dict_set(&options, "deadline", wanted.isRealTime ? "realtime" : "good", 0);
  av_dict_set(&options, "cpu-used", wanted.isRealTime ? "7" : "3", 0);
}

void setNvencOptions(AVDictionary*& options, AVCodecContext& context, const VideoEncoderOptions& wanted) {
  setPreset(options, wanted, "p4", "p6");
  av_dict_set(&options, "delay", "0", 0);
  if (wanted.settings.averageBitRate) return;
  av_dict_set(&options, "rc", "vbr", 0);
  av_dict_set_int(&options, "cq", std::lround(quantizer(wanted.settings)), 0);
  limitRate(context, wanted);
}

void setVaapiOptions(AVDictionary*& options, AVCodecContext& context, const VideoEncoderOptions& wanted) {
  if (wanted.settings.averageBitRate) return;
  av_dict_set(&options, "rc_mode", "QVBR", 0);
  context.global_quality = static_cast<int>(std::lround(quantizer(wanted.settings)));
  limitRate(context, wanted);
  context.bit_rate = context.rc_max_rate / 2;
}

void setV4L2Options(AVDictionary*& /*options*/, AVCodecContext& context, const VideoEncoderOptions& wanted) {
  // Such a device keeps a bit rate, not a quality.
  if (!wanted.settings.averageBitRate) context.bit_rate = mostBitRate(wanted) / 2;
}

constexpr std::array<VideoEncoderKind, 12> kKinds{{
    {"h264_nvenc", AV_CODEC_ID_H264, EncoderDevice::nvidia, setNvencOptions},
    {"h264_vaapi", AV_CODEC_ID_H264, EncoderDevice::vaapi, setVaapiOptions},
    {"h264_v4l2m2m", AV_CODEC_ID_H264, EncoderDevice::v4l2, setV4L2Options},
    {"libx264", AV_CODEC_ID_H264, EncoderDevice::processor, setX264Options},
    {"hevc_nvenc", AV_CODEC_ID_HEVC, EncoderDevice::nvidia, setNvencOptions},
    {"hevc_vaapi", AV_CODEC_ID_HEVC, EncoderDevice::vaapi, setVaapiOptions},
    {"hevc_v4l2m2m", AV_CODEC_ID_HEVC, EncoderDevice::v4l2, setV4L2Options},
    {"libx265", AV_CODEC_ID_HEVC, EncoderDevice::processor, setX265Options},
    {"av1_nvenc", AV_CODEC_ID_AV1, EncoderDevice::nvidia, setNvencOptions},
    {"av1_vaapi", AV_CODEC_ID_AV1, EncoderDevice::vaapi, setVaapiOptions},
    {"libaom-av1", AV_CODEC_ID_AV1, EncoderDevice::processor, setAomOptions},
    {"libvpx-vp9", AV_CODEC_ID_VP9, EncoderDevice::processor, setVpxOptions},
}};

/// The nodes of this name, numbered from `first` on, that can be used.
std::vector<std::string> nodesOf(const char* name, int first) {
  constexpr int kMostNodes = 64;
  std::vector<std::string> nodes;
  for (int number = first; number < first + kMostNodes; ++number) {
    std::string node = name + std::to_string(number);
    if (::access(node.c_str(), R_OK | W_OK) == 0) nodes.push_back(std::move(node));
  }
  return nodes;
}

std::vector<std::string> renderNodes() { return nodesOf("/dev/dri/renderD", 128); }

}  // namespace

int liveLookahead(AVRational frameRate) {
  constexpr double kSeconds = 0.3;
  constexpr int kFewest = 4;  // a row of pictures that are stored behind a later one, and that one
  constexpr int kMost = 12;   // more makes files no smaller
  return std::clamp(static_cast<int>(std::lround(kSeconds * av_q2d(frameRate))), kFewest, kMost);
}

bool VideoEncoderKind::isPresent() const {
  if (!avcodec_find_encoder_by_name(name)) return false;
  if (device == EncoderDevice::nvidia) return ::access(kNvidiaNode, R_OK | W_OK) == 0;
  if (device == EncoderDevice::vaapi) return !renderNodes().empty();
  return device != EncoderDevice::v4l2 || !nodesOf("/dev/video", 0).empty();
}

std::span<const VideoEncoderKind> VideoEncoderKind::all() { return kKinds; }

std::vector<VideoEncoderAttempt> videoEncoderAttempts(const VideoSettings& settings) {
  std::vector<VideoEncoderAttempt> attempts;
  for (const VideoEncoderKind& kind : kKinds) {
    const bool isAsked = settings.encoder.empty() ? kind.codec == settings.codec : kind.name == settings.encoder;
    if (!isAsked || !kind.isPresent()) continue;
    if (kind.device != EncoderDevice::vaapi) {
      attempts.push_back({&kind, {}});
      continue;
    }
    const auto nodes = settings.encoderNode.empty() ? renderNodes() : std::vector<std::string>{settings.encoderNode};
    for (const std::string& node : nodes) {
      for (const bool hasCap : {true, false}) {
        for (const bool isLowPower : {false, true}) attempts.push_back({&kind, node, isLowPower, hasCap});
      }
    }
  }
  return attempts;
}

}  // namespace tavrel
