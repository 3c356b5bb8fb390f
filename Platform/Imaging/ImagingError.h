#pragma once

#include <cstdint>

#include "Platform/Foundation/ErrorCode.h"

namespace tavrel {

/// Codes of errors in the domain "imaging". The numbers are stable. Failures of the file system have the domain "posix"
/// and an errno.
enum class ImagingErrorCode : std::int64_t {
  unknownFormat = -1,      ///< the bytes are not an image of a supported format
  damagedPicture = -2,     ///< the image is truncated or inconsistent
  noPixels = -3,           ///< the image is empty
  pictureTooLarge = -4,    ///< the image has more pixels than allowed
  noSuchPicture = -5,      ///< the index is out of range
  unsupportedFormat = -6,  ///< this format cannot be written
  encodingFailed = -7,     ///< the image could not be encoded
  nothingGiven = -8,       ///< neither bytes nor an image were given
  givenUp = -9             ///< reading was cancelled by `ImageSource::giveUp`
};

constexpr const char* errorDomain(ImagingErrorCode) { return "imaging"; }

}  // namespace tavrel
