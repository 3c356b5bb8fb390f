#include "Platform/Media/Private/Writing/PassthroughTrackEncoder.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <cstring>

#include "Platform/Media/Private/FFmpegError.h"
#include "Platform/Media/Private/FFmpegTime.h"
#include "Platform/Media/Private/StoredCoding.h"
#include "Platform/Media/Private/Writing/AudioTrackEncoder.h"

extern "C" {
#include <libavutil/intreadwrite.h>
}

namespace tavrel {

AVCodecID PassthroughTrackEncoder::codecOf(const FormatDescription& format) {
  if (format.isCompressed()) {
    const AVCodecDescriptor* const descriptor = avcodec_descriptor_get_by_name(format.codecName.c_str());
    return descriptor ? descriptor->id : AV_CODEC_ID_NONE;
  }
  return format.mediaType == MediaType::audio ? AudioTrackEncoder::storedCodec(format.audioFormat) : AV_CODEC_ID_NONE;
}

Expected<void> PassthroughTrackEncoder::open(TrackOutput output, bool isRealTime) {
  output_ = std::move(output);
  isRealTime_ = isRealTime;
  return {};
}

Expected<void> PassthroughTrackEncoder::adoptFirstSample(const TrackSample& sample) {
  hasFirstSample_ = true;
  if (sample.packet) return setPacketFormat(sample);
  pcm_ = std::make_unique<AudioTrackEncoder>(sample.format->audioFormat);
  return pcm_->open(output_, isRealTime_);
}

Expected<void> PassthroughTrackEncoder::setPacketFormat(const TrackSample& sample) {
  const FormatDescription& format = *sample.format;
  const CodecParameters parameters(avcodec_parameters_alloc());
  if (format.storedCoding) avcodec_parameters_copy(parameters.get(), format.storedCoding->parameters.get());
  parameters->codec_id = codecOf(format);
  if (mediaType_ == MediaType::audio) {
    parameters->codec_type = AVMEDIA_TYPE_AUDIO;
    parameters->sample_rate = static_cast<int>(std::lround(format.audioFormat.sampleRate));
    if (parameters->ch_layout.nb_channels == 0) {
      av_channel_layout_default(&parameters->ch_layout, static_cast<int>(format.audioFormat.channelCount));
    }
    timeBase_ = {1, parameters->sample_rate};
    framesOfPacket_ = parameters->frame_size;
    isOpus_ = parameters->codec_id == AV_CODEC_ID_OPUS;
    priming_ = isOpus_ ? parameters->initial_padding : 0;
    const std::int64_t told = unitsOf(sample.duration, timeBase_);
    if (framesOfPacket_ == 0 && isOpus_ && told != AV_NOPTS_VALUE) framesOfPacket_ = told;
    parameters->frame_size = static_cast<int>(std::max<std::int64_t>(0, told));
  } else {
    parameters->codec_type = AVMEDIA_TYPE_VIDEO;
    parameters->width = static_cast<int>(format.videoSize.width);
    parameters->height = static_cast<int>(format.videoSize.height);
    timeBase_ = {1, timescale_ > 0 ? timescale_ : sample.timescale};
  }
  // Of AC-3, any packet has what the file's header says.
  const Data& header = parameters->codec_id == AV_CODEC_ID_AC3 ? *sample.packet : format.codecExtradata;
  if (!header.empty() && !parameters->extradata) {
    const std::size_t size = header.size();
    parameters->extradata = static_cast<std::uint8_t*>(av_mallocz(size + AV_INPUT_BUFFER_PADDING_SIZE));
    if (!parameters->extradata) return failure(MediaErrorCode::allocationFailed, "no memory for a track's format");
    std::memcpy(parameters->extradata, header.data(), size);
    parameters->extradata_size = static_cast<int>(size);
  }
  const MediaTime decodeTime = sample.decodeTime.isNumeric() ? sample.decodeTime : sample.presentationTime;
  const bool isPicture = mediaType_ == MediaType::video;
  output_.setFormat({.parameters = parameters.get(),
                     .timeBase = timeBase_,
                     .frameRate = format.storedCoding ? format.storedCoding->frameRate : AVRational{0, 1},
                     .decodeLead = isPicture ? std::max<std::int64_t>(0, -unitsOf(decodeTime, timeBase_)) : 0,
                     .colorVolume = format.storedCoding ? format.storedCoding->colorVolume : ColorVolume{},
                     .isCopied = true},
                    true);
  return {};
}

Expected<void> PassthroughTrackEncoder::encode(const TrackSample& sample) {
  if (!hasFirstSample_) {
    if (auto adopted = adoptFirstSample(sample); !adopted) return adopted;
  }
  return pcm_ ? pcm_->encode(sample) : writePacket(sample);
}

Expected<void> PassthroughTrackEncoder::writePacket(const TrackSample& sample) {
  Packet packet(av_packet_alloc());
  if (const int result = av_new_packet(packet.get(), static_cast<int>(sample.packet->size())); result < 0) {
    return tl::unexpected(ffmpegError(MediaErrorCode::allocationFailed, result, "no memory for a packet"));
  }
  std::memcpy(packet->data, sample.packet->data(), sample.packet->size());
  packet->pts = unitsOf(sample.presentationTime, timeBase_);
  if (framesOfPacket_ > 0) packet->pts = exactPlaceOf(packet->pts);
  packet->dts =
      sample.decodeTime.isNumeric() && framesOfPacket_ == 0 ? unitsOf(sample.decodeTime, timeBase_) : packet->pts;
  // The container wants every decode time later than the one before.
  if (hasDecodeTime_ && packet->dts <= lastDecodeTime_) packet->dts = lastDecodeTime_ + 1;
  if (packet->pts < packet->dts) packet->pts = packet->dts;
  hasDecodeTime_ = true;
  lastDecodeTime_ = packet->dts;
  packet->duration = sample.duration.isNumeric() ? unitsOf(sample.duration, timeBase_) : 0;
  if (auto trimmed = trim(*packet); !trimmed) return trimmed;
  if (sample.isKeyframe) packet->flags |= AV_PKT_FLAG_KEY;
  output_.write(std::move(packet));
  return {};
}

/// Opus has packets of one length: what is shorter is not heard to its end, which not all containers tell by durations.
Expected<void> PassthroughTrackEncoder::trim(AVPacket& packet) const {
  const std::int64_t frames = framesOfPacket_ - packet.duration;
  const bool isRounding = frames * 1000 <= timeBase_.den;
  if (!isOpus_ || packet.duration <= 0 || isRounding) return {};
  constexpr std::size_t kSize = 10;
  std::uint8_t* const said = av_packet_new_side_data(&packet, AV_PKT_DATA_SKIP_SAMPLES, kSize);
  if (!said) return failure(MediaErrorCode::allocationFailed, "no memory for the end of a track's sound");
  std::memset(said, 0, kSize);
  AV_WL32(said + 4, static_cast<std::uint32_t>(frames));
  return {};
}

std::int64_t PassthroughTrackEncoder::exactPlaceOf(std::int64_t place) const {
  const std::int64_t expected = hasDecodeTime_ ? lastDecodeTime_ + framesOfPacket_ : -priming_;
  constexpr AVRational kTolerance{2, 1000};
  const bool isNear = std::abs(place - expected) <= av_rescale_q(1, kTolerance, timeBase_);
  return isNear && (hasDecodeTime_ || priming_ > 0) ? expected : place;
}

Expected<void> PassthroughTrackEncoder::finish() { return pcm_ ? pcm_->finish() : Expected<void>{}; }

}  // namespace tavrel
