#include "Platform/Media/Private/Writing/VideoEncoder.h"

#include <fmt/format.h>
#include <unistd.h>

#include <array>
#include <cmath>
#include <cstring>

extern "C" {
#include <libavutil/hwcontext.h>
}

#include "Platform/Media/Private/FFmpegError.h"
#include "Platform/Media/Private/FFmpegLog.h"

namespace tavrel {

/// How one of libavcodec's encoders is opened.
struct VideoEncoderKind {
  const char* name;
  bool isHEVC;
  const char* deviceNode;  // nullptr: software
  bool uploadsFrames;      // frames live in the device's memory
  void (*setOptions)(AVDictionary*& options, const VideoEncoder::Options& wanted);
};

namespace {

// 12 is as good as it gets, 20 (the default) is hard to tell from the original, 44 is coarse.
int quantizer(const VideoSettings& settings) { return static_cast<int>(std::lround(12 + (1 - settings.quality) * 32)); }

void setSoftwareOptions(AVDictionary*& options, const VideoEncoder::Options& wanted, const char* fast,
                        const char* thorough) {
  const std::string& asked = wanted.settings.preset;
  av_dict_set(&options, "preset", asked.empty() ? (wanted.isRealTime ? fast : thorough) : asked.c_str(), 0);
  if (wanted.isRealTime) av_dict_set(&options, "tune", "zerolatency", 0);
  if (!wanted.settings.averageBitRate) av_dict_set_int(&options, "crf", quantizer(wanted.settings), 0);
}

void setX264Options(AVDictionary*& options, const VideoEncoder::Options& wanted) {
  setSoftwareOptions(options, wanted, "superfast", "faster");
  // A bit rate is kept by the frames' own times; otherwise those need not be told to the encoder, which would announce
  // a frame rate of 1/timescale. Looking far ahead would keep what was recorded out of the file.
  std::string parameters = wanted.settings.averageBitRate ? "force-cfr=0" : "force-cfr=1";
  if (!wanted.isRealTime) parameters += ":rc-lookahead=10";
  av_dict_set(&options, "x264-params", parameters.c_str(), 0);
}

void setX265Options(AVDictionary*& options, const VideoEncoder::Options& wanted) {
  setSoftwareOptions(options, wanted, "ultrafast", "fast");
  av_dict_set(&options, "x265-params",
              wanted.isRealTime ? "log-level=none:bframes=0" : "log-level=none:bframes=0:rc-lookahead=10", 0);
}

void setNvencOptions(AVDictionary*& options, const VideoEncoder::Options& wanted) {
  av_dict_set(&options, "preset", wanted.isRealTime ? "p4" : "p6", 0);
  av_dict_set(&options, "delay", "0", 0);
  if (wanted.isRealTime) av_dict_set(&options, "tune", "ll", 0);
  if (wanted.settings.averageBitRate) return;
  av_dict_set(&options, "rc", "vbr", 0);
  av_dict_set_int(&options, "cq", quantizer(wanted.settings), 0);
}

void setVaapiOptions(AVDictionary*& options, const VideoEncoder::Options& wanted) {
  if (wanted.settings.averageBitRate) return;
  av_dict_set(&options, "rc_mode", "CQP", 0);
  av_dict_set_int(&options, "qp", quantizer(wanted.settings), 0);
}

constexpr const char* kRenderNode = "/dev/dri/renderD128";
constexpr std::array<VideoEncoderKind, 6> kKinds{{
    {"h264_nvenc", false, "/dev/nvidia0", false, setNvencOptions},
    {"h264_vaapi", false, kRenderNode, true, setVaapiOptions},
    {"libx264", false, nullptr, false, setX264Options},
    {"hevc_nvenc", true, "/dev/nvidia0", false, setNvencOptions},
    {"hevc_vaapi", true, kRenderNode, true, setVaapiOptions},
    {"libx265", true, nullptr, false, setX265Options},
}};

bool isPresent(const VideoEncoderKind& kind) {
  return avcodec_find_encoder_by_name(kind.name) && (!kind.deviceNode || ::access(kind.deviceNode, R_OK | W_OK) == 0);
}

tl::unexpected<Error> encoderFailure(MediaErrorCode code, int result, const char* name, const char* what) {
  return tl::unexpected(loggedFFmpegError(code, result, fmt::format("the video encoder {} {}", name, what)));
}

void fillBlack(AVFrame& frame) {
  for (int plane = 0; plane < 3; ++plane) {
    const int rows = plane == 0 ? frame.height : (frame.height + 1) / 2;
    std::memset(frame.data[plane], plane == 0 ? 16 : 128, static_cast<std::size_t>(frame.linesize[plane]) * rows);
  }
}

}  // namespace

bool VideoEncoder::isAvailable(bool isHEVC) {
  for (const VideoEncoderKind& kind : kKinds) {
    if (kind.isHEVC == isHEVC && isPresent(kind)) return true;
  }
  return false;
}

Expected<VideoEncoder> VideoEncoder::open(const Options& options) {
  quietFFmpegLog();
  Error last = makeError(MediaErrorCode::encoderUnavailable,
                         fmt::format("this FFmpeg has no encoder for {}", options.settings.isHEVC ? "H.265" : "H.264"));
  for (const VideoEncoderKind& kind : kKinds) {
    if (kind.isHEVC != options.settings.isHEVC || !isPresent(kind)) continue;
    auto encoder = openKind(kind, options);
    if (encoder && kind.deviceNode) {
      if (!encoder->encodesATrialFrame()) continue;
      encoder = openKind(kind, options);  // an encoder that was drained takes no more frames
    }
    if (encoder) return encoder;
    last = encoder.error();
  }
  return tl::unexpected(last);
}

Expected<VideoEncoder> VideoEncoder::openKind(const VideoEncoderKind& kind, const Options& options) {
  takeFFmpegLogLine();
  VideoEncoder encoder(kind, options);
  const VideoSettings& settings = options.settings;
  const AVCodec* const codec = avcodec_find_encoder_by_name(kind.name);
  encoder.context_.reset(avcodec_alloc_context3(codec));
  if (!encoder.context_)
    return encoderFailure(MediaErrorCode::encoderUnavailable, AVERROR(ENOMEM), kind.name, "does not open");
  AVCodecContext& context = *encoder.context_;
  context.width = settings.width;
  context.height = settings.height;
  context.pix_fmt = kind.uploadsFrames ? AV_PIX_FMT_VAAPI : AV_PIX_FMT_YUV420P;
  context.time_base = options.timeBase;
  context.framerate = {30, 1};
  context.sample_aspect_ratio = {1, 1};
  context.color_primaries = options.colors.primaries;
  context.color_trc = options.colors.transfer;
  context.colorspace = options.colors.matrix;
  context.color_range = AVCOL_RANGE_MPEG;
  context.max_b_frames = 0;
  context.gop_size = settings.maxKeyFrameInterval.value_or(options.isRealTime ? 60 : 120);
  context.bit_rate = settings.averageBitRate.value_or(0);
  context.flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  if (settings.isHEVC) context.codec_tag = MKTAG('h', 'v', 'c', '1');
  if (kind.uploadsFrames) {
    if (auto device = encoder.openDevice(); !device) return tl::unexpected(device.error());
  }
  AVDictionary* dictionary = nullptr;
  kind.setOptions(dictionary, options);
  const int result = avcodec_open2(&context, codec, &dictionary);
  av_dict_free(&dictionary);
  if (result < 0)
    return encoderFailure(MediaErrorCode::encoderUnavailable, result, kind.name, "does not open with these settings");
  return encoder;
}

Expected<void> VideoEncoder::openDevice() {
  AVBufferRef* device = nullptr;
  int result = av_hwdevice_ctx_create(&device, AV_HWDEVICE_TYPE_VAAPI, kind_->deviceNode, nullptr, 0);
  if (result < 0) return encoderFailure(MediaErrorCode::encoderUnavailable, result, kind_->name, "finds no device");
  AVBufferRef* const frames = av_hwframe_ctx_alloc(device);
  av_buffer_unref(&device);
  if (!frames) return encoderFailure(MediaErrorCode::allocationFailed, AVERROR(ENOMEM), kind_->name, "finds no memory");
  context_->hw_frames_ctx = frames;
  auto& description = *reinterpret_cast<AVHWFramesContext*>(frames->data);
  description.format = AV_PIX_FMT_VAAPI;
  description.sw_format = AV_PIX_FMT_NV12;
  description.width = context_->width;
  description.height = context_->height;
  description.initial_pool_size = 8;
  result = av_hwframe_ctx_init(frames);
  if (result < 0) return encoderFailure(MediaErrorCode::allocationFailed, result, kind_->name, "finds no memory");
  return {};
}

bool VideoEncoder::encodesATrialFrame() {
  const auto frame = writableFrame();
  if (!frame) return false;
  fillBlack(**frame);
  bool hasPacket = false;
  const auto handler = [&](const Packet&) { hasPacket = true; };
  return encode(0, handler) && finish(handler) && hasPacket && context_->extradata_size > 0;
}

CodecParameters VideoEncoder::parameters() const {
  CodecParameters parameters(avcodec_parameters_alloc());
  avcodec_parameters_from_context(parameters.get(), context_.get());
  parameters->format = AV_PIX_FMT_YUV420P;
  return parameters;
}

Expected<AVFrame*> VideoEncoder::writableFrame() {
  if (!frame_) {
    frame_.reset(av_frame_alloc());
    frame_->format = AV_PIX_FMT_YUV420P;
    frame_->width = context_->width;
    frame_->height = context_->height;
    frame_->color_primaries = context_->color_primaries;
    frame_->color_trc = context_->color_trc;
    frame_->colorspace = context_->colorspace;
    frame_->color_range = AVCOL_RANGE_MPEG;
    if (const int result = av_frame_get_buffer(frame_.get(), 0); result < 0) {
      frame_.reset();
      return encoderFailure(MediaErrorCode::allocationFailed, result, kind_->name, "finds no memory");
    }
  }
  if (const int result = av_frame_make_writable(frame_.get()); result < 0) {
    return encoderFailure(MediaErrorCode::allocationFailed, result, kind_->name, "finds no memory");
  }
  return frame_.get();
}

Expected<void> VideoEncoder::send(const AVFrame* frame) {
  if (const int result = avcodec_send_frame(context_.get(), frame); result < 0) {
    return encoderFailure(MediaErrorCode::encodingFailed, result, kind_->name, "fails");
  }
  return {};
}

Expected<void> VideoEncoder::encode(std::int64_t time, const PacketHandler& handler) {
  frame_->pts = time;
  if (!kind_->uploadsFrames) {
    if (auto sent = send(frame_.get()); !sent) return sent;
    return receive(handler);
  }
  const Frame uploaded(av_frame_alloc());
  int result = av_hwframe_get_buffer(context_->hw_frames_ctx, uploaded.get(), 0);
  if (result >= 0) result = av_hwframe_transfer_data(uploaded.get(), frame_.get(), 0);
  if (result >= 0) result = av_frame_copy_props(uploaded.get(), frame_.get());
  if (result < 0) return encoderFailure(MediaErrorCode::encodingFailed, result, kind_->name, "does not take a frame");
  if (auto sent = send(uploaded.get()); !sent) return sent;
  return receive(handler);
}

Expected<void> VideoEncoder::finish(const PacketHandler& handler) {
  if (auto sent = send(nullptr); !sent) return sent;
  return receive(handler);
}

Expected<void> VideoEncoder::receive(const PacketHandler& handler) {
  while (true) {
    Packet packet(av_packet_alloc());
    const int result = avcodec_receive_packet(context_.get(), packet.get());
    if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) return {};
    if (result < 0) return encoderFailure(MediaErrorCode::encodingFailed, result, kind_->name, "fails");
    if (packet->dts == AV_NOPTS_VALUE) packet->dts = packet->pts;
    packet->duration = 0;  // known when the next frame comes
    handler(std::move(packet));
  }
}

}  // namespace tavrel
