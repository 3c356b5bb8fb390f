#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "TavrelCaptureBase.h"

namespace tavrel::tool {

/// What `transcode` is asked to do.
struct TranscodingOptions {
  std::filesystem::path input;
  std::filesystem::path output;
  std::string fileType;
  std::optional<Size> size;
  bool isReversed = false;
  bool isRealTime = false;
  bool hasSound = true;
  bool isFragmented = false;
  bool isCopy = false;  ///< the pictures as they are stored
  Dictionary videoSettings;
  Dictionary audioSettings;
};

/// The tracks that are transcoded.
struct InputMovie {
  std::shared_ptr<Asset> asset;
  std::shared_ptr<const AssetTrack> pictures;
  std::shared_ptr<const AssetTrack> sound;  ///< null for none

  /// Fails if the file cannot be read or has no pictures.
  static Expected<InputMovie> open(const TranscodingOptions& options);
};

/// `asked`, with what the pictures of `track` need to be encoded anew in this size for a file of this type.
Dictionary pictureSettings(const AssetTrack& track, const std::string& fileType, Size size, Dictionary asked);

}  // namespace tavrel::tool
