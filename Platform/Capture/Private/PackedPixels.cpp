#include "Platform/Capture/Private/PackedPixels.h"

#include <algorithm>

namespace tavrel {
namespace {

/// A component of a word as the nearest byte. In more than eight bits, Y Cb Cr has the same numbers with a fraction;
/// all else reaches from 0 to the greatest.
class ChannelReader {
 public:
  ChannelReader(PackedPixel::Channel channel, bool isYCbCr) : shift_(channel.shift), mask_((1U << channel.bits) - 1) {
    constexpr std::uint64_t kOne = std::uint64_t{1} << kFractionBits;
    scale_ = isYCbCr && channel.bits >= 8 ? kOne >> (channel.bits - 8) : 255 * kOne / mask_;
  }
  std::uint8_t operator()(std::uint64_t word) const {
    const std::uint64_t value = (word >> shift_ & mask_) * scale_ + (std::uint64_t{1} << (kFractionBits - 1));
    return static_cast<std::uint8_t>(std::min<std::uint64_t>(value >> kFractionBits, 255));
  }

 private:
  static constexpr int kFractionBits = 32;
  int shift_;
  std::uint64_t mask_;
  std::uint64_t scale_;
};

}  // namespace

void unpackPixels(const PackedPixel& pixel, const std::uint8_t* row, int width,
                  const std::array<std::uint8_t*, 3>& targets, int step) {
  const std::array readers = {ChannelReader(pixel.channels[0], pixel.isYCbCr),
                              ChannelReader(pixel.channels[1], pixel.isYCbCr),
                              ChannelReader(pixel.channels[2], pixel.isYCbCr)};
  const int count = pixel.byteCount;
  for (std::ptrdiff_t x = 0; x < width; ++x, row += count) {
    std::uint64_t word = 0;
    for (int i = 0; i < count; ++i) word = word << 8 | row[pixel.isBigEndian ? i : count - 1 - i];
    for (std::size_t i = 0; i < targets.size(); ++i) targets[i][x * step] = readers[i](word);
  }
}

}  // namespace tavrel
