#pragma once

#include <gtest/gtest.h>

#include "Platform/Foundation/Geometry.h"
#include "Support/GraphTestSupport.h"

namespace tavrel::test {

/// Succeeds when `result` is `frame` with `sticker` laid over it by its straight alpha, in the rectangle `place` (in
/// pixels of the frame), turned clockwise by `radians` about that one's centre: computed on the CPU in double
/// precision, linear between the sticker's pixels. No component may be off by more than 2/255; pixels on the sticker's
/// edge are left out. Else the first pixel that is off.
::testing::AssertionResult isComposite(const Picture& result, const Picture& frame, const Picture& sticker,
                                       const Rect& place, double radians);

}  // namespace tavrel::test
