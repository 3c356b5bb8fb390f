#include "Platform/Media/AssetReaderTrackOutput.h"

#include <utility>

#include "Platform/Foundation/FatalAssertion.h"
#include "Platform/Media/AssetReader.h"
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
    if (const auto format = numberFor(*settings_, kPixelBufferPixelFormatTypeKey)) {
      form.pixelFormat = static_cast<PixelFormat>(static_cast<std::uint32_t>(*format));
    }
  }
  const bool isComposed = !track_->segments().empty();
  const auto& path = track_->path().empty() && !isComposed ? reader.asset()->path() : track_->path();
  return openTrack(path, *track_, form);
}

}  // namespace tavrel
