#pragma once

#include <string>

#include "Platform/Foundation/Data.h"
#include "Platform/Media/MediaTime.h"

namespace tavrel {

inline constexpr const char* kMetadataTitle = "title";
/// ISO 8601 with a time zone, such as "2024-05-17T09:30:00Z".
inline constexpr const char* kMetadataCreationDate = "creation_time";
/// ISO 6709, such as "+48.8577+002.2950/".
inline constexpr const char* kMetadataLocation = "location";
inline constexpr const char* kMetadataArtist = "artist";
inline constexpr const char* kMetadataComment = "comment";
/// Of the camera.
inline constexpr const char* kMetadataMake = "make";
inline constexpr const char* kMetadataModel = "model";

/// One item of a movie's metadata. The key is one of the above or the application's own.
struct MetadataItem {
  std::string key;
  std::string value;  ///< UTF-8

  friend bool operator==(const MetadataItem&, const MetadataItem&) = default;
};

/// A chapter of a movie.
struct Chapter {
  MediaTimeRange timeRange;
  std::string title;  ///< UTF-8
};

/// A cover: the picture that represents a movie while it is not played.
struct Artwork {
  std::string codecName;  ///< "mjpeg" for JPEG, "png"
  Data bytes;             ///< of a file of that kind
};

}  // namespace tavrel
