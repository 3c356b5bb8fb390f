#include <array>
#include <cstddef>
#include <cstdint>
#include <memory>

#include "Platform/Capture/Private/FrameConversion.h"

namespace {

using tavrel::FrameLayout;
using tavrel::FrameMatrix;

constexpr std::array kLayouts = {FrameLayout::bgra,  FrameLayout::rgba, FrameLayout::yuyv,  FrameLayout::uyvy,
                                 FrameLayout::nv12,  FrameLayout::i420, FrameLayout::mjpeg, FrameLayout::bgr24,
                                 FrameLayout::rgb24, FrameLayout::yvyu, FrameLayout::nv21,  FrameLayout::nv16,
                                 FrameLayout::yv12,  FrameLayout::p010, FrameLayout::gray8};

}  // namespace

/// What a camera may hand over: three bytes choose layout, colours and size, the rest is the picture. Half of the
/// inputs are JPEG, which has more to go wrong.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  if (size < 4) return 0;
  tavrel::RawFrame frame;
  frame.layout = bytes[0] % 2 == 0 ? FrameLayout::mjpeg : kLayouts[bytes[0] / 2 % kLayouts.size()];
  frame.matrix = static_cast<FrameMatrix>(bytes[0] / 16 % 3);
  frame.isFullRange = bytes[0] >= 128;
  frame.width = 1 + bytes[1] % 64;
  frame.height = 1 + bytes[2] % 64;
  const auto width = static_cast<std::size_t>(frame.width);
  frame.bytesPerRow = tavrel::FrameConverter::tightRow(frame.layout, frame.width) + bytes[1] / 64;
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
