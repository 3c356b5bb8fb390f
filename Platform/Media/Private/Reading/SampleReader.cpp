#include "Platform/Media/Private/Reading/SampleReader.h"

#include "Platform/Media/Private/Composing/SegmentTrackReader.h"
#include "Platform/Media/Private/Reading/PictureTrackReader.h"
#include "Platform/Media/Private/Reading/SoundTrackReader.h"
#include "Platform/Media/Private/Reading/StoredTrackReader.h"
#include "Platform/Media/Private/StoredCoding.h"

namespace tavrel {

AudioFormat decodedFormat(const AssetTrack& track) {
  AudioFormat format;
  format.sampleRate = track.sampleRate();
  format.channelCount = static_cast<std::uint32_t>(track.channelCount());
  return format;
}

Expected<std::unique_ptr<SampleReader>> openTrack(const AssetTrack& track, const SampleForm& form,
                                                  const std::filesystem::path& assetPath) {
  const auto& path = track.path().empty() && track.segments().empty() ? assetPath : track.path();
  if (path.empty()) return std::make_unique<SegmentTrackReader>(track, form);
  const auto& stored = track.storedFormat();
  const bool isVarying = stored && stored->storedCoding && stored->storedCoding->varies;
  if (form.isStored && stored && stored->isCompressed() && !isVarying) return StoredTrackReader::open(path, track);
  if (track.mediaType() == MediaType::video) return PictureTrackReader::open(path, track, form);
  if (form.isStored && stored)
    return SoundTrackReader::open(path, track, isVarying ? decodedFormat(track) : stored->audioFormat);
  return SoundTrackReader::open(path, track, form.audioFormat.value_or(decodedFormat(track)));
}

}  // namespace tavrel
