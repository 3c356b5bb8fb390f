#pragma once

#include <cstdint>

#include "Platform/Foundation/ErrorCode.h"

namespace tavrel {

/// Codes of errors in the domain "media". The numbers are stable. Failures of the file system while writing have the
/// domain "posix" and an errno.
enum class MediaErrorCode : std::int64_t {
  invalidArgument = -1,      ///< an object is missing, a time not numeric, a range empty or a buffer too small
  invalidSettings = -2,      ///< a setting is missing, of the wrong type or out of range
  inputInUse = -3,           ///< the input already belongs to a writer
  nothingAdded = -4,         ///< writing without an input, or reading without an output
  invalidatedSample = -5,    ///< the sample buffer was invalidated
  unsupportedFileType = -6,  ///< movies of this type cannot be written
  unsupportedFormat = -7,    ///< this codec or layout cannot be decoded or converted
  unsuitableContainer = -8,  ///< movies of this type cannot hold the codec
  encoderUnavailable = -9,   ///< no encoder for the codec is available, or none opens with these settings
  unreadableFile = -10,      ///< the movie to read is missing, not accessible or not a regular file
  unknownFileFormat = -11,   ///< the file is not a movie
  noPlayableTrack = -12,     ///< the movie has no decodable video or audio track
  damagedFile = -13,         ///< the movie is recognised but cannot be decoded
  unwritableFile = -14,      ///< the path is not that of a regular file
  emptyMovie = -15,          ///< the writing ended without a sample: there is no file
  encodingFailed = -16,      ///< an encoder failed while running
  writingFailed = -17,       ///< the container rejected a header, sample or trailer
  conversionFailed = -18,    ///< a sample could not be converted
  allocationFailed = -19,    ///< out of memory
  fileInUse = -20            ///< another writer, of this process or another, writes the movie's file
};

constexpr const char* errorDomain(MediaErrorCode) { return "media"; }

}  // namespace tavrel
