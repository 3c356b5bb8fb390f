#include "Platform/Media/Private/Writing/VideoEncoder.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <iterator>

extern "C" {
#include <libavutil/hwcontext.h>
}

#include "Platform/Media/Private/FFmpegError.h"
#include "Platform/Media/Private/FFmpegLog.h"

namespace tavrel {
namespace {

tl::unexpected<Error> encoderFailure(MediaErrorCode code, int result, const char* name, const char* what) {
  return tl::unexpected(loggedFFmpegError(code, result, fmt::format("the video encoder {} {}", name, what)));
}

/// Ramps in all three planes.
void fillWithColors(AVFrame& frame) {
  for (int row = 0; row < frame.height; ++row) {
    std::uint8_t* const luma = frame.data[0] + static_cast<std::ptrdiff_t>(row) * frame.linesize[0];
    for (int column = 0; column < frame.width; ++column)
      luma[column] = static_cast<std::uint8_t>(16 + (row + column) % 220);
  }
  const bool isInterleaved = frame.format == AV_PIX_FMT_NV12;
  for (int plane = 1; plane < (isInterleaved ? 2 : 3); ++plane) {
    const int width = isInterleaved ? frame.width : frame.width / 2;
    for (int row = 0; row < frame.height / 2; ++row) {
      std::uint8_t* const line = frame.data[plane] + static_cast<std::ptrdiff_t>(row) * frame.linesize[plane];
      for (int column = 0; column < width; ++column)
        line[column] = static_cast<std::uint8_t>(16 + (row * plane + column) % 224);
    }
  }
}

Error noEncoder(const VideoSettings& settings) {
  std::string names;
  for (const VideoEncoderKind& kind : VideoEncoderKind::all()) {
    if (!settings.encoder.empty() || kind.codec == settings.codec)
      names += fmt::format("{}{}", names.empty() ? "" : ", ", kind.name);
  }
  const std::string what = settings.encoder.empty() ? fmt::format("no encoder for {}", avcodec_get_name(settings.codec))
                                                    : fmt::format("no encoder {}, or not its device", settings.encoder);
  return makeError(MediaErrorCode::encoderUnavailable,
                   fmt::format("this machine has {}: it would be one of {}", what, names));
}

}  // namespace

Expected<void> VideoEncoder::check(const VideoSettings& settings) {
  if (videoEncoderAttempts(settings).empty()) return tl::unexpected(noEncoder(settings));
  return {};
}

std::vector<VideoEncoderInfo> VideoEncoder::list() {
  std::vector<VideoEncoderInfo> encoders;
  for (const VideoEncoderKind& kind : VideoEncoderKind::all()) {
    VideoEncoderOptions options;
    options.settings.codec = kind.codec;
    options.settings.encoder = kind.name;
    options.settings.width = 640;
    options.settings.height = 480;
    for (const VideoEncoderAttempt& attempt : videoEncoderAttempts(options.settings)) {
      const std::string name = attempt.node.empty() ? kind.name : fmt::format("{}:{}", kind.name, attempt.node);
      const bool isListed = !encoders.empty() && encoders.back().name == name;
      if (isListed || !openFirst({attempt}, options)) continue;
      encoders.push_back({name, options.settings.codecName(), kind.device != EncoderDevice::processor});
    }
  }
  return encoders;
}

Expected<VideoEncoder> VideoEncoder::open(const VideoEncoderOptions& options) {
  return openFirst(videoEncoderAttempts(options.settings), options);
}

Expected<VideoEncoder> VideoEncoder::openSuccessor(VideoEncoderOptions options) {
  options.isSuccessor = true;
  options.settings.encoder.clear();
  options.settings.preset.clear();
  auto attempts = videoEncoderAttempts(options.settings);
  std::erase_if(attempts, [](const auto& attempt) { return attempt.kind->device != EncoderDevice::processor; });
  return openFirst(attempts, options);
}

Expected<VideoEncoder> VideoEncoder::openFirst(const std::vector<VideoEncoderAttempt>& attempts,
                                               const VideoEncoderOptions& options) {
  quietFFmpegLog();
  Error last = noEncoder(options.settings);
  for (const VideoEncoderAttempt& attempt : attempts) {
    auto encoder = openAttempt(attempt, options);
    if (encoder && attempt.kind->device != EncoderDevice::processor) {
      if (!encoder->encodesATrialFrame()) {
        last = makeError(MediaErrorCode::encoderUnavailable,
                         fmt::format("the video encoder {} opens and does not encode", attempt.kind->name));
        continue;
      }
      auto headers = std::move(encoder->headers_);
      encoder = openAttempt(attempt, options);  // an encoder that was drained takes no more frames
      if (encoder) encoder->headers_ = std::move(headers);
    }
    if (encoder) return encoder;
    last = encoder.error();
  }
  return tl::unexpected(last);
}

void VideoEncoder::describe(AVCodecContext& context) const {
  const VideoSettings& settings = options_.settings;
  context.width = settings.width;
  context.height = settings.height;
  const AVPixelFormat format = kind().pixelFormat(options_.pictures.isDeep);
  context.pix_fmt = kind().device == EncoderDevice::vaapi ? AV_PIX_FMT_VAAPI : format;
  context.time_base = options_.timeBase;
  context.framerate = options_.frameRate;
  context.sample_aspect_ratio = settings.pixelAspect;
  const ColorTags& colors = options_.pictures.colors;
  context.color_primaries = colors.primaries;
  context.color_trc = colors.transfer;
  context.colorspace = colors.matrix;
  context.color_range = AVCOL_RANGE_MPEG;
  const bool isInterlaced = options_.pictures.fieldOrder != AV_FIELD_PROGRESSIVE && codesFields();
  context.field_order = isInterlaced ? options_.pictures.fieldOrder : AV_FIELD_PROGRESSIVE;
  if (isInterlaced) context.flags |= AV_CODEC_FLAG_INTERLACED_DCT | AV_CODEC_FLAG_INTERLACED_ME;
  // How many pictures are stored behind later ones is told before a track begins, which no device says reliably.
  if (options_.isSuccessor || kind().device != EncoderDevice::processor) context.max_b_frames = 0;
  constexpr double kKeyFrameSeconds = 4;
  constexpr int kFewestFrames = 250;
  const auto usual = static_cast<int>(std::lround(kKeyFrameSeconds * av_q2d(options_.frameRate)));
  context.gop_size = settings.maxKeyFrameInterval.value_or(std::max(kFewestFrames, usual));
  context.bit_rate = settings.averageBitRate.value_or(0);
  if (!options_.isSuccessor) context.flags |= AV_CODEC_FLAG_GLOBAL_HEADER;
  if (settings.codec == AV_CODEC_ID_HEVC) context.codec_tag = MKTAG('h', 'v', 'c', '1');
}

Expected<VideoEncoder> VideoEncoder::openAttempt(const VideoEncoderAttempt& attempt,
                                                 const VideoEncoderOptions& options) {
  takeFFmpegLogLine();
  const char* const name = attempt.kind->name;
  VideoEncoder encoder(attempt, options);
  const AVCodec* const codec = avcodec_find_encoder_by_name(name);
  encoder.context_.reset(avcodec_alloc_context3(codec));
  if (!encoder.context_)
    return encoderFailure(MediaErrorCode::encoderUnavailable, AVERROR(ENOMEM), name, "does not open");
  AVCodecContext& context = *encoder.context_;
  encoder.describe(context);
  AVDictionary* dictionary = nullptr;
  attempt.kind->setOptions(dictionary, context, options);
  if (attempt.isLowPower) av_dict_set_int(&dictionary, "low_power", 1, 0);
  if (!attempt.hasCap && !options.settings.averageBitRate) {
    av_dict_set(&dictionary, "rc_mode", "CQP", 0);
    context.bit_rate = context.rc_max_rate = context.rc_buffer_size = 0;
  }
  auto device = attempt.node.empty() ? Expected<void>() : encoder.openDevice();
  const int result = device ? avcodec_open2(&context, codec, &dictionary) : 0;
  av_dict_free(&dictionary);
  if (!device) return tl::unexpected(device.error());
  if (result < 0)
    return encoderFailure(MediaErrorCode::encoderUnavailable, result, name, "does not open with these settings");
  return encoder;
}

Expected<void> VideoEncoder::openDevice() {
  AVBufferRef* device = nullptr;
  int result = av_hwdevice_ctx_create(&device, AV_HWDEVICE_TYPE_VAAPI, attempt_.node.c_str(), nullptr, 0);
  if (result < 0) return encoderFailure(MediaErrorCode::encoderUnavailable, result, kind().name, "finds no device");
  AVBufferRef* const frames = av_hwframe_ctx_alloc(device);
  av_buffer_unref(&device);
  if (!frames) return encoderFailure(MediaErrorCode::allocationFailed, AVERROR(ENOMEM), kind().name, "finds no memory");
  context_->hw_frames_ctx = frames;
  auto& description = *reinterpret_cast<AVHWFramesContext*>(frames->data);
  description.format = AV_PIX_FMT_VAAPI;
  description.sw_format = AV_PIX_FMT_NV12;
  description.width = context_->width;
  description.height = context_->height;
  description.initial_pool_size = 8;
  result = av_hwframe_ctx_init(frames);
  if (result < 0) return encoderFailure(MediaErrorCode::allocationFailed, result, kind().name, "finds no memory");
  return {};
}

bool VideoEncoder::encodesATrialFrame() {
  const auto frame = writableFrame();
  if (!frame) return false;
  fillWithColors(**frame);
  bool hasPacket = false;
  const auto handler = [&](const Packet& packet) {
    if (!hasPacket && context_->extradata_size == 0) keepHeaders(*packet);
    hasPacket = true;
  };
  return encode(0, handler) && finish(handler) && hasPacket && (context_->extradata_size > 0 || !headers_.empty());
}

void VideoEncoder::keepHeaders(const AVPacket& packet) {
  AVBSFContext* made = nullptr;
  if (av_bsf_alloc(av_bsf_get_by_name("extract_extradata"), &made) < 0) return;
  const std::unique_ptr<AVBSFContext, void (*)(AVBSFContext*)> filter(
      made, [](AVBSFContext* unused) { av_bsf_free(&unused); });
  filter->par_in->codec_type = AVMEDIA_TYPE_VIDEO;
  filter->par_in->codec_id = kind().codec;
  const Packet copy(av_packet_clone(&packet));
  if (!copy || av_bsf_init(made) < 0 || av_bsf_send_packet(made, copy.get()) < 0) return;
  if (av_bsf_receive_packet(made, copy.get()) < 0) return;
  std::size_t size = 0;
  const std::uint8_t* const headers = av_packet_get_side_data(copy.get(), AV_PKT_DATA_NEW_EXTRADATA, &size);
  if (headers) headers_.assign(headers, headers + size);
}

int VideoEncoder::liveDelay() const {
  const int lookahead = reordering() == 0 ? 0 : liveLookahead(options_.frameRate);
  return lookahead + std::max(1, context_->thread_count);
}

CodecParameters VideoEncoder::parameters() const {
  CodecParameters parameters(avcodec_parameters_alloc());
  avcodec_parameters_from_context(parameters.get(), context_.get());
  parameters->format = kind().pixelFormat(options_.pictures.isDeep);
  if (parameters->format == AV_PIX_FMT_NV12) parameters->format = AV_PIX_FMT_YUV420P;
  if (parameters->extradata_size > 0 || headers_.empty()) return parameters;
  parameters->extradata = static_cast<std::uint8_t*>(av_mallocz(headers_.size() + AV_INPUT_BUFFER_PADDING_SIZE));
  if (!parameters->extradata) return parameters;
  std::copy(headers_.begin(), headers_.end(), parameters->extradata);
  parameters->extradata_size = static_cast<int>(headers_.size());
  return parameters;
}

Expected<AVFrame*> VideoEncoder::writableFrame() {
  if (!frame_) {
    frame_.reset(av_frame_alloc());
    frame_->format = kind().pixelFormat(options_.pictures.isDeep);
    frame_->width = context_->width;
    frame_->height = context_->height;
    frame_->sample_aspect_ratio = context_->sample_aspect_ratio;
    frame_->color_primaries = context_->color_primaries;
    frame_->color_trc = context_->color_trc;
    frame_->colorspace = context_->colorspace;
    frame_->color_range = AVCOL_RANGE_MPEG;
    if (const int result = av_frame_get_buffer(frame_.get(), 0); result < 0) {
      frame_.reset();
      return encoderFailure(MediaErrorCode::allocationFailed, result, kind().name, "finds no memory");
    }
  }
  if (const int result = av_frame_make_writable(frame_.get()); result < 0) {
    return encoderFailure(MediaErrorCode::allocationFailed, result, kind().name, "finds no memory");
  }
  return frame_.get();
}

Expected<void> VideoEncoder::send(const AVFrame* frame) {
  if (const int result = avcodec_send_frame(context_.get(), frame); result < 0) {
    return encoderFailure(MediaErrorCode::encodingFailed, result, kind().name, "fails");
  }
  return {};
}

Expected<void> VideoEncoder::encode(std::int64_t time, const PacketHandler& handler, AVFieldOrder fieldOrder) {
  frame_->pts = time;
  frame_->interlaced_frame = fieldOrder != AV_FIELD_PROGRESSIVE && codesFields() ? 1 : 0;
  frame_->top_field_first = fieldOrder == AV_FIELD_TT ? 1 : 0;
  if (!context_->hw_frames_ctx) {
    if (auto sent = send(frame_.get()); !sent) return sent;
    return receive(handler);
  }
  const Frame uploaded(av_frame_alloc());
  int result = av_hwframe_get_buffer(context_->hw_frames_ctx, uploaded.get(), 0);
  if (result >= 0) result = av_hwframe_transfer_data(uploaded.get(), frame_.get(), 0);
  if (result >= 0) result = av_frame_copy_props(uploaded.get(), frame_.get());
  if (result < 0) return encoderFailure(MediaErrorCode::encodingFailed, result, kind().name, "does not take a frame");
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
    if (result < 0) return encoderFailure(MediaErrorCode::encodingFailed, result, kind().name, "fails");
    if (packet->dts == AV_NOPTS_VALUE) packet->dts = packet->pts;
    packet->duration = 0;  // known when the next frame comes
    handler(std::move(packet));
  }
}

}  // namespace tavrel
