#pragma once

#include <cstddef>
#include <cstdint>
#include <map>
#include <optional>
#include <span>

#include "Platform/Media/Private/FFmpegHandles.h"

namespace tavrel {

/// What a packet of sound says of itself, in codings whose packets each have a header.
struct SoundHeader {
  int sampleRate = 0;
  int channelCount = 0;
  int profile = 0;  ///< of AAC

  /// Of AAC in ADTS (ISO/IEC 13818-7), MPEG audio (ISO/IEC 11172-3, 13818-3), AC-3 and E-AC-3 (ETSI TS 102 366);
  /// nothing for other codings and damaged headers.
  static std::optional<SoundHeader> of(AVCodecID codec, std::span<const std::uint8_t> packet);

  friend bool operator==(const SoundHeader&, const SoundHeader&) = default;
};

/// The headers of a file's packets of sound: a track whose headers change cannot be stored under a single one. What
/// only one packet says is taken for damage. One thread at a time.
class SoundHeaders {
 public:
  void note(const AVPacket& packet, const AVCodecParameters& parameters);
  /// Whether a track's headers differ.
  bool vary(int track) const;
  /// Whether they differ in what gives packets their lengths.
  bool varyInRate(int track) const;
  /// Gives the parameters of such a track the highest rate and the most channels that it has.
  void widen(int track, AVCodecParameters& parameters) const;

 private:
  struct Track {
    SoundHeader last;
    std::optional<SoundHeader> first;
    SoundHeader most;
    bool varies = false;
    bool variesInRate = false;
  };
  const Track* find(int track) const;

  std::map<int, Track> tracks_;
};

}  // namespace tavrel
