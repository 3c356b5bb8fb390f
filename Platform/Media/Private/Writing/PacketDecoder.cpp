#include "Platform/Media/Private/Writing/PacketDecoder.h"

#include <fmt/format.h>

#include <cmath>
#include <cstring>

#include "Platform/Media/Private/FFmpegError.h"
#include "Platform/Media/Private/FFmpegTime.h"
#include "Platform/Media/Private/StoredCoding.h"

namespace tavrel {

Expected<PacketDecoder> PacketDecoder::create(const FormatDescription& format) {
  const AVCodecDescriptor* const descriptor = avcodec_descriptor_get_by_name(format.codecName.c_str());
  const AVCodec* const decoder = descriptor ? avcodec_find_decoder(descriptor->id) : nullptr;
  if (!decoder)
    return failure(MediaErrorCode::unsupportedFormat,
                   fmt::format("sound coded as {} cannot be decoded", format.codecName));
  CodecContext codec(avcodec_alloc_context3(decoder));
  if (!codec) return failure(MediaErrorCode::allocationFailed, "there is no memory left for a decoder");
  // Some codings, Windows Media's for one, have a block size and a bit rate that the decoder must know.
  if (format.storedCoding) avcodec_parameters_to_context(codec.get(), format.storedCoding->parameters.get());
  codec->sample_rate = static_cast<int>(std::lround(format.audioFormat.sampleRate));
  if (codec->ch_layout.nb_channels == 0) {
    av_channel_layout_default(&codec->ch_layout, static_cast<int>(format.audioFormat.channelCount));
  }
  codec->pkt_timebase = {1, codec->sample_rate};
  if (const std::size_t size = format.codecExtradata.size(); size > 0 && codec->extradata_size == 0) {
    codec->extradata = static_cast<std::uint8_t*>(av_mallocz(size + AV_INPUT_BUFFER_PADDING_SIZE));
    if (!codec->extradata) return failure(MediaErrorCode::allocationFailed, "there is no memory left for a decoder");
    std::memcpy(codec->extradata, format.codecExtradata.data(), size);
    codec->extradata_size = static_cast<int>(size);
  }
  if (const int result = avcodec_open2(codec.get(), decoder, nullptr); result < 0) {
    return tl::unexpected(ffmpegError(MediaErrorCode::unsupportedFormat, result,
                                      fmt::format("sound coded as {} cannot be decoded", format.codecName)));
  }
  return PacketDecoder(format, std::move(codec));
}

PacketDecoder::PacketDecoder(const FormatDescription& format, CodecContext codec)
    : format_(format),
      codec_(std::move(codec)),
      frame_(av_frame_alloc()),
      pcm_(AudioFormat{.sampleRate = format.audioFormat.sampleRate, .channelCount = format.audioFormat.channelCount}) {}

Expected<std::vector<std::shared_ptr<SampleBuffer>>> PacketDecoder::decode(const TrackSample& sample) {
  const Packet packet(av_packet_alloc());
  if (!packet || av_new_packet(packet.get(), static_cast<int>(sample.packet->size())) < 0) {
    return failure(MediaErrorCode::allocationFailed, "there is no memory left for a packet");
  }
  std::memcpy(packet->data, sample.packet->data(), sample.packet->size());
  packet->pts = unitsOf(sample.presentationTime, codec_->pkt_timebase);
  packet->dts = packet->pts;
  avcodec_send_packet(codec_.get(), packet.get());
  return receive();
}

Expected<std::vector<std::shared_ptr<SampleBuffer>>> PacketDecoder::finish() {
  avcodec_send_packet(codec_.get(), nullptr);
  return receive();
}

Expected<std::vector<std::shared_ptr<SampleBuffer>>> PacketDecoder::receive() {
  std::vector<std::shared_ptr<SampleBuffer>> pieces;
  while (avcodec_receive_frame(codec_.get(), frame_.get()) >= 0) {
    frame_->pts = frame_->best_effort_timestamp;
    if (frame_->pts == AV_NOPTS_VALUE) continue;
    auto piece = pcm_.convert(*frame_, codec_->pkt_timebase);
    if (!piece) return tl::unexpected(piece.error());
    if (*piece) pieces.push_back(std::move(*piece));
  }
  return pieces;
}

}  // namespace tavrel
