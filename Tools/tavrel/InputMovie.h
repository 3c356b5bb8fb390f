#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "TavrelCaptureBase.h"

namespace tavrel::tool {

/// What `transcode` is asked to do.
struct TranscodingOptions {
  std::filesystem::path input;
  std::filesystem::path output;
  std::string fileType;
  std::optional<Size> size;
  std::string scalingMode = kVideoScalingModeResizeAspect;  ///< to that size
  bool isSquared = false;                                   ///< square pixels also without effects
  bool isReversed = false;
  bool isRealTime = false;
  bool hasSound = true;
  std::string soundTrack;  ///< its number from 1, "all", or empty for the one that players choose
  MediaTimeRange timeRange = MediaTimeRange::everything();
  bool isFragmented = false;
  bool printsProgress = false;
  bool isCopy = false;  ///< the pictures as they are stored
  bool keepsHDR = false;
  bool keepsFields = false;
  Dictionary videoSettings;
  Dictionary audioSettings;

  /// How much of the movie is asked for; 0 if nobody knows.
  double secondsOf(const Asset& asset) const;
};

/// The tracks that are transcoded.
struct InputMovie {
  std::shared_ptr<Asset> asset;
  std::shared_ptr<const AssetTrack> pictures;
  std::vector<std::shared_ptr<const AssetTrack>> sounds;
  std::vector<std::shared_ptr<const AssetTrack>> subtitles;  ///< those that the new movie can have

  /// Fails if the file cannot be read, has no pictures or not the sound that is asked for.
  static Expected<InputMovie> open(const TranscodingOptions& options);
};

/// Says what of the input will not be in the output.
void sayWhatIsLeftOut(const TranscodingOptions& options, const Asset& asset);

/// Gives the new movie the metadata, the chapters and the cover of the input.
void carryOver(const TranscodingOptions& options, const Asset& asset, AssetWriter& writer);

/// How large the pictures of `track` are in square pixels.
Size squaredSize(const AssetTrack& track);

/// The size that pictures of `size` are scaled to, before bars are added or sides are cut off.
Size scaledSize(const TranscodingOptions& options, Size size);

/// What the pictures of `track` need to be encoded anew: what was asked for, and else as they are in `size` with pixels
/// of `pixelAspect`.
Dictionary pictureSettings(const TranscodingOptions& options, const AssetTrack& track, Size size, Size pixelAspect);

}  // namespace tavrel::tool
