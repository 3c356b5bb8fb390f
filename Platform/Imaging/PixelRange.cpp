#include "Platform/Imaging/PixelRange.h"

#include <libyuv.h>
#include <libyuv/row.h>

#include <algorithm>
#include <cstdint>
#include <iterator>

namespace tavrel {

#if defined(__x86_64__) || defined(__i386__)
/// libyuv's limited-range constants hold the factor from Cb to blue cut off at 128 / 64, which makes saturated blue
/// wrong by up to 13 of 255 for BT.709 and BT.2020. Its row functions take the true factor as well.
static libyuv::YuvConstants withBlueFactor(const libyuv::YuvConstants& given, std::uint8_t factor) {
  libyuv::YuvConstants constants = given;
  std::replace(std::begin(constants.kUVToB), std::end(constants.kUVToB), std::uint8_t{128}, factor);
  return constants;
}

const libyuv::YuvConstants* limitedRange601() {
  alignas(32) static const libyuv::YuvConstants constants = withBlueFactor(libyuv::kYuvI601Constants, 129);
  return &constants;
}

const libyuv::YuvConstants* limitedRange709() {
  alignas(32) static const libyuv::YuvConstants constants = withBlueFactor(libyuv::kYuvH709Constants, 135);
  return &constants;
}

const libyuv::YuvConstants* limitedRange2020() {
  alignas(32) static const libyuv::YuvConstants constants = withBlueFactor(libyuv::kYuv2020Constants, 137);
  return &constants;
}
#else
// The constants are laid out differently here: BT.601 is near enough as it is, the others are not.
const libyuv::YuvConstants* limitedRange601() { return &libyuv::kYuvI601Constants; }
const libyuv::YuvConstants* limitedRange709() { return nullptr; }
const libyuv::YuvConstants* limitedRange2020() { return nullptr; }
#endif

}  // namespace tavrel
