#pragma once

namespace libyuv {
struct YuvConstants;
}

namespace tavrel {

/// What libyuv's conversions take for Y Cb Cr of limited range. nullptr where it has nothing that is right.
const libyuv::YuvConstants* limitedRange601();
const libyuv::YuvConstants* limitedRange709();
const libyuv::YuvConstants* limitedRange2020();

}  // namespace tavrel
