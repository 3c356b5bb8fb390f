#pragma once

#include <deque>
#include <optional>

#include "Platform/Media/Private/FFmpegHandles.h"
#include "Platform/Media/Private/Reading/AdtsUnwrapper.h"
#include "Platform/Media/Private/Reading/PacketReader.h"
#include "Platform/Media/Private/Reading/SampleReader.h"
#include "Platform/Media/Private/Reading/SoundHeaders.h"

namespace tavrel {

/// The packets of a file's track as they are stored, in the file's order. Sound before time 0, which a decoder needs
/// and a player does not play, has its own negative time, and 0 as its output time.
class StoredTrackReader final : public SampleReader {
 public:
  static Expected<std::unique_ptr<SampleReader>> open(const std::filesystem::path& path, const AssetTrack& track);

  Expected<std::shared_ptr<SampleBuffer>> next(const GoOn& goOn) override;
  Expected<void> seek(const MediaTimeRange& range, bool withShownAtStart) override;

 private:
  StoredTrackReader() = default;

  Expected<std::shared_ptr<SampleBuffer>> sampleOf(const AVPacket& packet) const;
  /// The next packet of the track. False at the end, and when `goOn` answers no.
  bool read(const GoOn& goOn);
  /// A transport or program stream, which is cut anywhere.
  bool isBroadcast() const;
  /// Has the next packets tried: where a broadcast was cut, sound begins with the rest of a packet.
  void expectCut();
  /// False for what no decoder takes.
  bool isWhole(const AVPacket& packet);
  /// Reads ahead until a picture says when it is decoded, which the first of Matroska do not say.
  void timeEarly(const GoOn& goOn);

  std::filesystem::path path_;
  std::shared_ptr<const FormatDescription> format_;
  std::optional<PacketReader> packets_;
  std::optional<AdtsUnwrapper> unwrapper_;
  SoundHeaders headers_;
  CodecContext trial_;  // until it has decoded something
  Packet packet_;
  std::deque<Packet> early_;  // read, and not given
  bool isTimed_ = false;
  MediaTimeRange range_ = MediaTimeRange::everything();
  bool isAtEnd_ = false;
};

/// What the packets of a stream are; `varies` where not all have the same rate and channels.
std::shared_ptr<const FormatDescription> storedFormatOf(const AVStream& stream, bool varies);

/// Whether a coding is PCM, which needs no packets.
bool isPcm(AVCodecID codec);

}  // namespace tavrel
