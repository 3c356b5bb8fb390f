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

/// Domain and code of the library's own errors.
inline constexpr const char* kTavrelErrorDomain = "com.TavrelBase.ErrorDomain";
inline constexpr std::int64_t kTavrelErrorCode = -4002;

/// An error of the library's own domain.
TAVREL_API Error TavrelNewError(std::int64_t code, std::string description);

/// True if `status` is 0; then clears `error`, if given. Any other status is logged as an error with tag "TavrelUtils"
/// and stored in `error` with code -4002, as "DESCRIPTION: fmt?" if its four bytes, highest first, are printable, else
/// as "DESCRIPTION: -50". Any thread.
TAVREL_API bool TavrelCheckStatus(std::int32_t status, std::string_view description,
                                  std::optional<Error>* error = nullptr);

/// Runs `block` on the main thread and returns after it: directly if called there, else through the main queue, which
/// needs `RunLoop::main()` to run. Any thread.
TAVREL_API void TavrelDispatchSyncMain(const std::function<void()>& block);

/// The transform that places a sticker with `TavrelGPUImageTransformFilter`: maps a picture of the frame's size to
/// `rectangle` (in pixels of the frame), rotated by `rotation` radians about its centre. Coordinates span -1…1 across
/// the width and keep the proportions, so translations are in halves of the width. The frame must not be empty.
TAVREL_API AffineTransform TavrelGetTransform(const Rect& rectangle, Size frameSize, float rotation);

}  // namespace tavrel
