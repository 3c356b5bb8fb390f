#pragma once

#include <cstdint>

#include "Platform/Foundation/ErrorCode.h"

namespace tavrel {

/// The codes of errors in the domain "media" (`Error::code`). Stable numbers. What the file system refuses while a
/// movie is written comes in the domain "posix", with its errno.
enum class MediaErrorCode : std::int64_t {
  invalidArgument = -1,      ///< an object is missing, a time is not numeric, a range is empty, a buffer is too small
  invalidSettings = -2,      ///< a setting is missing, of the wrong type or out of range
  inputInUse = -3,           ///< the input serves a writer already
  nothingAdded = -4,         ///< writing without an input, or reading without an output
  invalidatedSample = -5,    ///< the sample buffer was invalidated
  unsupportedFileType = -6,  ///< movies of this type cannot be written
  unsupportedFormat = -7,    ///< sound or pictures in this coding or layout cannot be decoded or converted
  unsuitableContainer = -8,  ///< movies of this type cannot hold the coding
  encoderUnavailable = -9,   ///< there is no encoder for the coding, or none that opens with these settings
  unreadableFile = -10,      ///< the movie to be read is missing, not permitted or not a regular file
  unknownFileFormat = -11,   ///< the file is not a movie
  noPlayableTrack = -12,     ///< the movie holds neither pictures nor sound that can be decoded
  damagedFile = -13,         ///< the movie is recognized, but cannot be decoded
  unwritableFile = -14,      ///< the movie cannot be written there: not a regular file
  emptyMovie = -15,          ///< the writing ended without a sample: there is no file
  encodingFailed = -16,      ///< an encoder failed while it ran
  writingFailed = -17,       ///< the container refused a header, a sample or its end
  conversionFailed = -18,    ///< a sound or a picture could not be converted
  allocationFailed = -19,    ///< no memory left
  fileInUse = -20            ///< another writer, of this process or another, writes the movie's file
};

constexpr const char* errorDomain(MediaErrorCode) { return "media"; }

}  // namespace tavrel
