#pragma once

#include <optional>
#include <vector>

#include "Platform/Media/Private/PcmConverter.h"
#include "Platform/Media/Private/Writing/TrackEncoder.h"

namespace tavrel {

/// Turns compressed sound into PCM in its own rate and channels, packet by packet. One thread at a time.
class PacketDecoder {
 public:
  /// Fails for a coding that cannot be decoded.
  static Expected<PacketDecoder> create(const FormatDescription& format);

  const FormatDescription& format() const { return format_; }
  /// What the packet completes. Damaged packets give nothing.
  Expected<std::vector<std::shared_ptr<SampleBuffer>>> decode(const TrackSample& packet);
  /// What is left at the end.
  Expected<std::vector<std::shared_ptr<SampleBuffer>>> finish();

 private:
  PacketDecoder(const FormatDescription& format, CodecContext codec);
  Expected<std::vector<std::shared_ptr<SampleBuffer>>> receive();

  FormatDescription format_;
  CodecContext codec_;
  Frame frame_;
  PcmConverter pcm_;
};

}  // namespace tavrel
