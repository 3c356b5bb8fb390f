#include <cstddef>
#include <cstdint>
#include <memory>

#include "Platform/Capture/Private/FrameConversion.h"

namespace {

using tavrel::FrameLayout;
using tavrel::FrameMatrix;

constexpr auto kLayoutCount = static_cast<int>(FrameLayout::mjpeg);

}  // namespace

/// What a camera may hand over: three bytes choose layout, colours and size, the rest is the picture. Half of the
/// inputs are JPEG, which has more to go wrong.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  if (size < 4) return 0;
  tavrel::RawFrame frame;
  frame.layout = bytes[0] % 2 == 0 ? FrameLayout::mjpeg : static_cast<FrameLayout>(bytes[0] / 2 % kLayoutCount);
  frame.matrix = static_cast<FrameMatrix>(bytes[0] / 16 % 3);
  frame.range = static_cast<tavrel::FrameRange>(bytes[2] / 64 % 3);
  frame.packed = {.byteCount = static_cast<std::uint8_t>(1 + bytes[1] / 64 * 2),
                  .isBigEndian = bytes[2] >= 128,
                  .isYCbCr = bytes[0] >= 128,
                  .channels = {{{0, 3}, {3, 5}, {0, 8}}}};
  frame.width = 1 + bytes[1] % 64;
  frame.height = 1 + bytes[2] % 64;
  const auto width = static_cast<std::size_t>(frame.width);
  frame.bytesPerRow = tavrel::FrameConverter::tightRow(frame) + bytes[1] / 64;
  // A block of its own, so that reading beyond it is seen.
  const std::size_t count = size - 3;
  const auto picture = std::make_unique<std::uint8_t[]>(count);
  std::copy(bytes + 3, bytes + size, picture.get());
  frame.bytes = picture.get();
  frame.byteCount = count;
  const auto target =
      tavrel::PixelBuffer::create(width, static_cast<std::size_t>(frame.height), tavrel::PixelFormat::bgra32);
  tavrel::FrameConverter converter;
  (void)converter.convert(frame, **target);
  (void)converter.convert(frame, **target);  // again, after what the first one left
  return 0;
}
