#pragma once

#include <cstdint>
#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"
#include "Platform/Foundation/Geometry.h"

namespace tavrel {

/// The domain of the errors that the library reports itself, and the one code they carry.
inline constexpr const char* kTavrelErrorDomain = "com.TavrelBase.ErrorDomain";
inline constexpr std::int64_t kTavrelErrorCode = -4002;

/// An error of the library's own domain.
TAVREL_API Error TavrelNewError(std::int64_t code, std::string description);

/// True for status 0, and `error` (if given) is emptied. Any other status is logged as an error with tag "TavrelUtils",
/// and stored in `error` with code -4002: "DESCRIPTION: fmt?" when its four bytes, highest first, are printable
/// characters, else "DESCRIPTION: -50". Any thread.
TAVREL_API bool TavrelCheckStatus(std::int32_t status, std::string_view description,
                                  std::optional<Error>* error = nullptr);

/// Runs `block` on the main thread and returns after it: at once when the caller is on it, else through the main queue,
/// which waits for `RunLoop::main()`. Any thread.
TAVREL_API void TavrelDispatchSyncMain(const std::function<void()>& block);

/// Places a sticker: the transform, for the transform filter, that brings a picture of the frame's size to `rectangle`
/// (in pixels of the frame) turned by `rotation` radians about its centre. Coordinates span -1..1 across the width and
/// keep the aspect ratio, so both translations are in halves of the width. The frame must not be empty.
TAVREL_API AffineTransform TavrelGetTransform(const Rect& rectangle, Size frameSize, float rotation);

}  // namespace tavrel
