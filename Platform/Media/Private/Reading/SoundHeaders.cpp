#include "Platform/Media/Private/Reading/SoundHeaders.h"

#include <algorithm>
#include <array>

namespace tavrel {
namespace {

using Bytes = std::span<const std::uint8_t>;

/// `count` bits from the bit `first` on; 0 behind the end.
unsigned bitsOf(Bytes bytes, std::size_t first, std::size_t count) {
  unsigned bits = 0;
  for (std::size_t i = first; i < first + count; ++i)
    bits = bits << 1 | (i / 8 < bytes.size() ? bytes[i / 8] >> (7 - i % 8) & 1U : 0U);
  return bits;
}

std::optional<SoundHeader> aacHeader(Bytes packet) {
  constexpr std::array kRates = {96000, 88200, 64000, 48000, 44100, 32000, 24000,
                                 22050, 16000, 12000, 11025, 8000,  7350};
  const unsigned rate = bitsOf(packet, 18, 4);
  if (bitsOf(packet, 0, 12) != 0xFFF || bitsOf(packet, 13, 2) != 0 || rate >= kRates.size()) return std::nullopt;
  const int channels = static_cast<int>(bitsOf(packet, 23, 3));
  constexpr int kWithLowEffects = 7;  // of 7.1
  return SoundHeader{kRates[rate], channels == kWithLowEffects ? 8 : channels, static_cast<int>(bitsOf(packet, 16, 2))};
}

std::optional<SoundHeader> mpegHeader(Bytes packet) {
  constexpr std::array kRates = {44100, 48000, 32000};
  const unsigned version = bitsOf(packet, 11, 2);
  const unsigned rate = bitsOf(packet, 20, 2);
  if (bitsOf(packet, 0, 11) != 0x7FF || version == 1 || rate >= kRates.size()) return std::nullopt;
  const int divisor = version == 3 ? 1 : version == 2 ? 2 : 4;
  constexpr unsigned kOneChannel = 3;
  return SoundHeader{kRates[rate] / divisor, bitsOf(packet, 24, 2) == kOneChannel ? 1 : 2};
}

std::optional<SoundHeader> ac3Header(Bytes packet) {
  constexpr std::array kRates = {48000, 44100, 32000};
  constexpr std::array kChannels = {2, 1, 2, 3, 3, 4, 4, 5};
  if (bitsOf(packet, 0, 16) != 0x0B77) return std::nullopt;
  const unsigned rate = bitsOf(packet, 32, 2);
  constexpr unsigned kLastOfAC3 = 10;
  if (bitsOf(packet, 40, 5) > kLastOfAC3) {
    constexpr unsigned kDependent = 1;
    const unsigned half = bitsOf(packet, 34, 2);
    if (bitsOf(packet, 16, 2) == kDependent || (rate >= kRates.size() && half >= kRates.size())) return std::nullopt;
    const int channels = kChannels[bitsOf(packet, 36, 3)] + static_cast<int>(bitsOf(packet, 39, 1));
    return SoundHeader{rate < kRates.size() ? kRates[rate] : kRates[half] / 2, channels};
  }
  if (rate >= kRates.size()) return std::nullopt;
  const unsigned mode = bitsOf(packet, 48, 3);
  const bool hasCenter = (mode & 1U) != 0 && mode != 1;
  const bool hasSurround = (mode & 4U) != 0;
  // The levels of what is mixed down stand before the low effects' bit.
  const std::size_t lowEffects = 51 + 2U * (static_cast<unsigned>(hasCenter) + hasSurround + (mode == 2));
  return SoundHeader{kRates[rate], kChannels[mode] + static_cast<int>(bitsOf(packet, lowEffects, 1))};
}

}  // namespace

std::optional<SoundHeader> SoundHeader::of(AVCodecID codec, Bytes packet) {
  constexpr std::size_t kShortest = 7;
  if (packet.size() < kShortest) return std::nullopt;
  switch (codec) {
    case AV_CODEC_ID_AAC: return aacHeader(packet);
    case AV_CODEC_ID_MP1:
    case AV_CODEC_ID_MP2:
    case AV_CODEC_ID_MP3: return mpegHeader(packet);
    case AV_CODEC_ID_AC3:
    case AV_CODEC_ID_EAC3: return ac3Header(packet);
    default: return std::nullopt;
  }
}

void SoundHeaders::note(const AVPacket& packet, const AVCodecParameters& parameters) {
  const auto header = SoundHeader::of(parameters.codec_id, {packet.data, static_cast<std::size_t>(packet.size)});
  if (!header) return;
  Track& track = tracks_[packet.stream_index];
  const bool isCertain = track.last == *header;
  track.last = *header;
  if (!isCertain) return;
  if (!track.first) track.first = *header;
  track.varies = track.varies || *header != *track.first;
  track.variesInRate = track.variesInRate || header->sampleRate != track.first->sampleRate;
  track.most.sampleRate = std::max(track.most.sampleRate, header->sampleRate);
  track.most.channelCount = std::max(track.most.channelCount, header->channelCount);
}

const SoundHeaders::Track* SoundHeaders::find(int track) const {
  const auto found = tracks_.find(track);
  return found == tracks_.end() ? nullptr : &found->second;
}

bool SoundHeaders::vary(int track) const {
  const Track* const found = find(track);
  return found && found->varies;
}

bool SoundHeaders::varyInRate(int track) const {
  const Track* const found = find(track);
  return found && found->variesInRate;
}

void SoundHeaders::widen(int track, AVCodecParameters& parameters) const {
  if (!vary(track)) return;
  const SoundHeader& most = find(track)->most;
  parameters.sample_rate = std::max(parameters.sample_rate, most.sampleRate);
  if (parameters.ch_layout.nb_channels >= most.channelCount) return;
  av_channel_layout_uninit(&parameters.ch_layout);
  av_channel_layout_default(&parameters.ch_layout, most.channelCount);
}

}  // namespace tavrel
