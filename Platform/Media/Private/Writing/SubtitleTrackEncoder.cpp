#include "Platform/Media/Private/Writing/SubtitleTrackEncoder.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cstring>

#include "Platform/Media/Private/FFmpegError.h"
#include "Platform/Media/Private/FFmpegTime.h"
#include "Platform/Media/Private/StoredCoding.h"

namespace tavrel {
namespace {

constexpr AVRational kTimeBase{1, 1000};
constexpr std::size_t kLongestText = std::size_t{1} << 20;

AVCodecID codecOf(const FormatDescription& format) {
  const AVCodecDescriptor* const descriptor = avcodec_descriptor_get_by_name(format.codecName.c_str());
  return descriptor && descriptor->type == AVMEDIA_TYPE_SUBTITLE ? descriptor->id : AV_CODEC_ID_NONE;
}

/// Packets that are each a text with its times.
bool isText(AVCodecID codec) {
  constexpr std::array kTexts = {AV_CODEC_ID_SUBRIP, AV_CODEC_ID_ASS, AV_CODEC_ID_WEBVTT, AV_CODEC_ID_TEXT,
                                 AV_CODEC_ID_MOV_TEXT};
  return std::find(kTexts.begin(), kTexts.end(), codec) != kTexts.end();
}

/// What such subtitles are stored as.
AVCodecID targetOf(const MovieContainer& container, AVCodecID codec) {
  if (container.canHoldSubtitles(codec)) return codec;
  const AVCodecID text = container.usualSubtitles();
  return isText(codec) && avcodec_find_decoder(codec) && avcodec_find_encoder(text) ? text : AV_CODEC_ID_NONE;
}

Expected<void> copyBytes(const void* bytes, std::size_t size, std::uint8_t*& to, int& toSize) {
  if (size == 0) return {};
  to = static_cast<std::uint8_t*>(av_mallocz(size + AV_INPUT_BUFFER_PADDING_SIZE));
  if (!to) return failure(MediaErrorCode::allocationFailed, "there is no memory left for subtitles");
  std::memcpy(to, bytes, size);
  toSize = static_cast<int>(size);
  return {};
}

}  // namespace

bool SubtitleTrackEncoder::canStore(const MovieContainer& container, const FormatDescription& format) {
  return targetOf(container, codecOf(format)) != AV_CODEC_ID_NONE;
}

Expected<void> SubtitleTrackEncoder::check(const MovieFile& file) const {
  if (format_ && canStore(file.container(), *format_)) return {};
  return failure(
      MediaErrorCode::unsuitableContainer,
      fmt::format("{} cannot hold {} subtitles", file.container().name(), format_ ? format_->codecName : "unknown"));
}

Expected<void> SubtitleTrackEncoder::open(TrackOutput output, bool) {
  output_ = std::move(output);
  const AVCodecID codec = codecOf(*format_);
  const AVCodecID target = targetOf(output_.queue->file().container(), codec);
  const CodecParameters parameters(avcodec_parameters_alloc());
  if (target != codec) {
    if (auto opened = openConverter(target); !opened) return opened;
    avcodec_parameters_from_context(parameters.get(), encoder_.get());
  } else if (format_->storedCoding) {
    avcodec_parameters_copy(parameters.get(), format_->storedCoding->parameters.get());
  }
  parameters->codec_type = AVMEDIA_TYPE_SUBTITLE;
  parameters->codec_id = target;
  output_.setFormat({.parameters = parameters.get(), .timeBase = kTimeBase}, true);
  return {};
}

Expected<void> SubtitleTrackEncoder::openConverter(AVCodecID target) {
  const AVCodec* const decoder = avcodec_find_decoder(codecOf(*format_));
  const AVCodec* const encoder = avcodec_find_encoder(target);
  decoder_.reset(avcodec_alloc_context3(decoder));
  encoder_.reset(avcodec_alloc_context3(encoder));
  const auto failed = [](int result) {
    return tl::unexpected(ffmpegError(MediaErrorCode::unsupportedFormat, result, "subtitles cannot be converted"));
  };
  if (!decoder_ || !encoder_) return failed(AVERROR(ENOMEM));
  const Data& header = format_->codecExtradata;
  if (auto copied = copyBytes(header.data(), header.size(), decoder_->extradata, decoder_->extradata_size); !copied)
    return copied;
  decoder_->pkt_timebase = kTimeBase;
  if (const int result = avcodec_open2(decoder_.get(), decoder, nullptr); result < 0) return failed(result);
  // Between decoders and encoders texts go as lines of a script, whose header says how they look.
  if (decoder_->subtitle_header) {
    const auto size = static_cast<std::size_t>(decoder_->subtitle_header_size);
    auto copied = copyBytes(decoder_->subtitle_header, size, encoder_->subtitle_header, encoder_->subtitle_header_size);
    if (!copied) return copied;
  }
  encoder_->time_base = kTimeBase;
  if (const int result = avcodec_open2(encoder_.get(), encoder, nullptr); result < 0) return failed(result);
  return {};
}

Expected<std::optional<Data>> SubtitleTrackEncoder::converted(const TrackSample& sample) {
  if (!encoder_) return *sample.packet;
  const Packet packet(av_packet_alloc());
  if (!packet || av_new_packet(packet.get(), static_cast<int>(sample.packet->size())) < 0)
    return failure(MediaErrorCode::allocationFailed, "there is no memory left for subtitles");
  std::memcpy(packet->data, sample.packet->data(), sample.packet->size());
  packet->pts = packet->dts = unitsOf(sample.presentationTime, kTimeBase);
  packet->duration = sample.duration.isNumeric() ? unitsOf(sample.duration, kTimeBase) : 0;
  AVSubtitle subtitle{};
  const std::unique_ptr<AVSubtitle, void (*)(AVSubtitle*)> freed(&subtitle, avsubtitle_free);
  int isDecoded = 0;
  // One that is damaged is no reason to lose the movie.
  const int result = avcodec_decode_subtitle2(decoder_.get(), &subtitle, &isDecoded, packet.get());
  if (result < 0 || isDecoded == 0 || subtitle.num_rects == 0) return std::nullopt;
  text_.resize(kLongestText);
  subtitle.start_display_time = 0;
  subtitle.end_display_time = static_cast<std::uint32_t>(std::max<std::int64_t>(0, packet->duration));
  const int size = avcodec_encode_subtitle(encoder_.get(), text_.data(), static_cast<int>(text_.size()), &subtitle);
  if (size <= 0) return std::nullopt;
  return Data(text_.data(), text_.data() + size);
}

Expected<void> SubtitleTrackEncoder::encode(const TrackSample& sample) {
  if (!sample.packet) return {};
  const auto text = converted(sample);
  if (!text) return tl::unexpected(text.error());
  if (!*text) return {};
  Packet packet(av_packet_alloc());
  if (!packet || av_new_packet(packet.get(), static_cast<int>((*text)->size())) < 0)
    return failure(MediaErrorCode::allocationFailed, "there is no memory left for subtitles");
  std::memcpy(packet->data, (*text)->data(), (*text)->size());
  packet->pts = packet->dts = unitsOf(sample.presentationTime, kTimeBase);
  // Pictures stay until the next one.
  packet->duration = sample.duration.isNumeric() ? unitsOf(sample.duration, kTimeBase) : 0;
  packet->flags |= AV_PKT_FLAG_KEY;
  output_.write(std::move(packet));
  return {};
}

}  // namespace tavrel
