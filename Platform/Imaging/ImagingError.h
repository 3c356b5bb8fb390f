#pragma once

#include <cstdint>

#include "Platform/Foundation/ErrorCode.h"

namespace tavrel {

/// The codes of errors in the domain "imaging" (`Error::code`). Stable numbers. What the file system refuses comes in
/// the domain "posix", with its errno.
enum class ImagingErrorCode : std::int64_t {
  unknownFormat = -1,      ///< the bytes are no picture of a kind that can be read
  damagedPicture = -2,     ///< the picture is cut off, or its bytes contradict each other
  noPixels = -3,           ///< the picture is empty
  pictureTooLarge = -4,    ///< the picture has more pixels than are allowed
  noSuchPicture = -5,      ///< there are not that many pictures
  unsupportedFormat = -6,  ///< pictures of this type cannot be written
  encodingFailed = -7,     ///< the picture could not be encoded
  nothingGiven = -8,       ///< neither bytes nor a picture were given
  givenUp = -9             ///< somebody had the reading given up
};

constexpr const char* errorDomain(ImagingErrorCode) { return "imaging"; }

}  // namespace tavrel
