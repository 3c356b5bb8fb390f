#include "Platform/Media/MovieProbe.h"

#include <cmath>
#include <cstring>
#include <memory>

#include "Platform/Media/Private/FFmpegError.h"
#include "Platform/Media/Private/FFmpegHandles.h"
#include "Platform/Media/Private/FFmpegTime.h"

extern "C" {
#include <libavutil/pixdesc.h>
}

/// This program links FFmpeg.
const tavrel::FFmpegFunctions& tavrel::FFmpegFunctions::shared() {
  static constexpr FFmpegFunctions kFunctions = {
#define TAVREL_FUNCTION(name) ::name,
#include "Platform/Media/FFmpegFunctions.inc"
  };
  return kFunctions;
}

namespace tavrel::test {
namespace {

std::string text(const char* name) { return name ? name : ""; }

CodecContext openDecoder(const AVStream& stream) {
  const AVCodec* const codec = avcodec_find_decoder(stream.codecpar->codec_id);
  CodecContext context(avcodec_alloc_context3(codec));
  avcodec_parameters_to_context(context.get(), stream.codecpar);
  context->pkt_timebase = stream.time_base;
  if (!codec || avcodec_open2(context.get(), codec, nullptr) < 0) return nullptr;
  return context;
}

void describeVideo(const AVStream& stream, ProbedVideo& video) {
  const AVCodecParameters& parameters = *stream.codecpar;
  video.codec = avcodec_get_name(parameters.codec_id);
  video.pixelFormat = text(av_get_pix_fmt_name(static_cast<AVPixelFormat>(parameters.format)));
  video.primaries = text(av_color_primaries_name(parameters.color_primaries));
  video.transfer = text(av_color_transfer_name(parameters.color_trc));
  video.matrix = text(av_color_space_name(parameters.color_space));
  video.range = text(av_color_range_name(parameters.color_range));
  video.width = parameters.width;
  video.reordering = parameters.video_delay;
  video.height = parameters.height;
  video.timescale = stream.time_base.den;
  const auto* const matrix = av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, nullptr);
  if (matrix) std::memcpy(video.displayMatrix.emplace().data(), matrix, 9 * sizeof(std::int32_t));
}

void takePicture(const AVFrame& frame, bool keepLuma, ProbedVideo& video) {
  video.times.push_back(frame.best_effort_timestamp);
  const int x = frame.width / 2, y = frame.height / 2;
  video.centers.push_back({frame.data[0][y * frame.linesize[0] + x], frame.data[1][y / 2 * frame.linesize[1] + x / 2],
                           frame.data[2][y / 2 * frame.linesize[2] + x / 2]});
  if (!keepLuma) return;
  auto& luma = video.luma.emplace_back();
  for (int row = 0; row < frame.height; ++row) {
    const auto* const line = frame.data[0] + row * frame.linesize[0];
    luma.insert(luma.end(), line, line + frame.width);
  }
}

float sampleOf(const AVFrame& frame, int index) {
  const int step = av_sample_fmt_is_planar(static_cast<AVSampleFormat>(frame.format)) ? 1 : frame.ch_layout.nb_channels;
  if (av_get_packed_sample_fmt(static_cast<AVSampleFormat>(frame.format)) == AV_SAMPLE_FMT_S16) {
    return static_cast<float>(reinterpret_cast<const std::int16_t*>(frame.data[0])[index * step]) / 32768;
  }
  return reinterpret_cast<const float*>(frame.data[0])[index * step];
}

void takeSound(const AVFrame& frame, AVRational base, ProbedAudio& audio) {
  const double start = static_cast<double>(frame.best_effort_timestamp) * av_q2d(base);
  const auto position = std::lround(start * frame.sample_rate);
  // What fills the decoder before time 0 is not played.
  const long end = position < 0 ? position : static_cast<long>(audio.samples.size());
  audio.longestJoint = std::max(audio.longestJoint, std::abs(static_cast<double>(position - end)) / frame.sample_rate);
  // Containers that count in milliseconds place packets only roughly.
  const long first = std::abs(position - end) * 1000 <= frame.sample_rate ? end : position;
  for (int i = 0; i < frame.nb_samples; ++i) {
    const long index = first + i;
    if (index < 0) continue;
    if (index >= static_cast<long>(audio.samples.size())) audio.samples.resize(static_cast<std::size_t>(index) + 1);
    audio.samples[static_cast<std::size_t>(index)] = sampleOf(frame, i);
  }
}

}  // namespace

std::optional<double> ProbedAudio::firstAbove(float level, double from) const {
  for (auto i = static_cast<std::size_t>(from * sampleRate); i < samples.size(); ++i) {
    if (std::abs(samples[i]) >= level) return static_cast<double>(i) / sampleRate;
  }
  return std::nullopt;
}

double ProbedAudio::level(double from, double to) const {
  double sum = 0;
  std::size_t count = 0;
  for (auto i = static_cast<std::size_t>(from * sampleRate); i < samples.size() && i < to * sampleRate; ++i, ++count) {
    sum += static_cast<double>(samples[i]) * samples[i];
  }
  return count ? std::sqrt(sum / static_cast<double>(count)) : 0;
}

MovieProbe MovieProbe::open(const std::filesystem::path& path, bool keepLuma) {
  MovieProbe probe;
  AVFormatContext* opened = nullptr;
  int result = avformat_open_input(&opened, path.c_str(), nullptr, nullptr);
  const InputFormat input(opened);
  if (result >= 0) result = avformat_find_stream_info(opened, nullptr);
  if (result < 0) {
    probe.error = ffmpegErrorText(result);
    return probe;
  }
  probe.duration = opened->duration == AV_NOPTS_VALUE ? 0 : static_cast<double>(opened->duration) / AV_TIME_BASE;
  for (const AVDictionaryEntry* entry = nullptr;
       (entry = av_dict_get(opened->metadata, "", entry, AV_DICT_IGNORE_SUFFIX));) {
    probe.metadata[entry->key] = entry->value;
  }
  std::vector<CodecContext> decoders;
  for (unsigned i = 0; i < opened->nb_streams; ++i) {
    const AVStream& stream = *opened->streams[i];
    decoders.push_back(openDecoder(stream));
    if (stream.codecpar->codec_type == AVMEDIA_TYPE_VIDEO) describeVideo(stream, probe.video.emplace());
    if (stream.codecpar->codec_type == AVMEDIA_TYPE_AUDIO) {
      auto& audio = probe.audio.emplace();
      audio.codec = avcodec_get_name(stream.codecpar->codec_id);
      audio.sampleRate = stream.codecpar->sample_rate;
      audio.channels = stream.codecpar->ch_layout.nb_channels;
    }
  }
  const Frame frame(av_frame_alloc());
  const auto decode = [&](const AVPacket* packet, std::size_t index) {
    AVCodecContext* const decoder = decoders[index].get();
    if (!decoder) return;
    if (avcodec_send_packet(decoder, packet) < 0) ++probe.decodeErrors;
    while (avcodec_receive_frame(decoder, frame.get()) >= 0) {
      if (decoder->codec_type == AVMEDIA_TYPE_VIDEO) takePicture(*frame, keepLuma, *probe.video);
      if (decoder->codec_type == AVMEDIA_TYPE_AUDIO) takeSound(*frame, decoder->pkt_timebase, *probe.audio);
    }
  };
  const Packet packet(av_packet_alloc());
  while (av_read_frame(opened, packet.get()) >= 0) {
    const auto index = static_cast<std::size_t>(packet->stream_index);
    if (opened->streams[index]->codecpar->codec_type == AVMEDIA_TYPE_VIDEO) {
      probe.video->packetDurations.push_back(packet->duration);
      probe.video->keyframes.push_back((packet->flags & AV_PKT_FLAG_KEY) != 0);
    }
    decode(packet.get(), index);
    av_packet_unref(packet.get());
  }
  for (std::size_t i = 0; i < decoders.size(); ++i) decode(nullptr, i);
  return probe;
}

std::vector<std::shared_ptr<SampleBuffer>> MovieProbe::packets(const std::filesystem::path& path, MediaType mediaType) {
  std::vector<std::shared_ptr<SampleBuffer>> result;
  AVFormatContext* opened = nullptr;
  if (avformat_open_input(&opened, path.c_str(), nullptr, nullptr) < 0) return result;
  const InputFormat input(opened);
  avformat_find_stream_info(opened, nullptr);
  const auto wanted = mediaType == MediaType::audio ? AVMEDIA_TYPE_AUDIO : AVMEDIA_TYPE_VIDEO;
  const int index = av_find_best_stream(opened, wanted, -1, -1, nullptr, 0);
  if (index < 0) return result;
  const AVStream& stream = *opened->streams[index];
  const AVCodecParameters& parameters = *stream.codecpar;
  auto format = std::make_shared<FormatDescription>();
  format->mediaType = mediaType;
  format->codecName = avcodec_get_name(parameters.codec_id);
  format->codecExtradata.assign(parameters.extradata, parameters.extradata + parameters.extradata_size);
  format->videoSize = {static_cast<double>(parameters.width), static_cast<double>(parameters.height)};
  format->audioFormat.sampleRate = parameters.sample_rate;
  format->audioFormat.channelCount = static_cast<std::uint32_t>(parameters.ch_layout.nb_channels);
  const Packet packet(av_packet_alloc());
  for (; av_read_frame(opened, packet.get()) >= 0; av_packet_unref(packet.get())) {
    if (packet->stream_index != index) continue;
    const SampleTiming timing{mediaTimeFrom(packet->duration, stream.time_base),
                              mediaTimeFrom(packet->pts, stream.time_base),
                              mediaTimeFrom(packet->dts, stream.time_base)};
    result.push_back(*SampleBuffer::createPacket(format, Data(packet->data, packet->data + packet->size), timing,
                                                 (packet->flags & AV_PKT_FLAG_KEY) != 0));
  }
  return result;
}

}  // namespace tavrel::test
