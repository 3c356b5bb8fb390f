#include "Platform/Media/AssetReaderTrackOutput.h"

#include <cmath>
#include <utility>

#include "Platform/Foundation/FatalAssertion.h"
#include "Platform/Media/AssetReader.h"
#include "Platform/Media/MediaError.h"
#include "Platform/Media/Private/Reading/SampleReader.h"

namespace tavrel {

AssetReaderTrackOutput::AssetReaderTrackOutput(std::shared_ptr<const AssetTrack> track)
    : AssetReaderTrackOutput(std::move(track), Dictionary()) {}

AssetReaderTrackOutput::AssetReaderTrackOutput(std::shared_ptr<const AssetTrack> track,
                                               const std::optional<Dictionary>& outputSettings)
    : track_(std::move(track)), settings_(outputSettings) {
  if (!track_) fatalAssertion("An asset reader output needs a track");
}

Expected<std::unique_ptr<SampleReader>> AssetReaderTrackOutput::open(const AssetReader& reader) {
  SampleForm form;
  form.isStored = !settings_;
  form.isRandomAccess = supportsRandomAccess();
  if (settings_) {
    if (mediaType() == MediaType::subtitle) {
      return failure(MediaErrorCode::invalidSettings, "subtitles are read as they are stored, without settings");
    }
    if (const auto format = numberFor(*settings_, kPixelBufferPixelFormatTypeKey)) {
      form.pixelFormat = static_cast<PixelFormat>(static_cast<std::uint32_t>(*format));
    }
    form.allowsPlanes = numberFor(*settings_, kVideoAllowsPlanesKey).value_or(0) != 0;
    const auto fields = settings_->find(kVideoFieldModeKey);
    form.keepsFields = fields != settings_->end() && fields->second == Value(std::string(kVideoFieldModeBothFields));
    const auto rate = numberFor(*settings_, kAudioSampleRateKey);
    const auto channels = numberFor(*settings_, kAudioNumberOfChannelsKey);
    if ((rate && !(*rate >= 1 && *rate <= 768000)) || (channels && !(*channels >= 1 && *channels <= 64))) {
      return failure(MediaErrorCode::invalidSettings,
                     "sound is read in 1 to 768000 frames a second and 1 to 64 channels");
    }
    if (rate || channels) form.audioFormat = decodedFormat(*track_);
    if (rate) form.audioFormat->sampleRate = std::round(*rate);
    if (channels) form.audioFormat->channelCount = static_cast<std::uint32_t>(*channels);
  }
  return openTrack(*track_, form, reader.asset()->path());
}

}  // namespace tavrel
