#include "Platform/Imaging/PixelScaling.h"

#include <libyuv/scale_argb.h>

#include <algorithm>
#include <cmath>
#include <vector>

namespace tavrel {
namespace {

/// Of each of the target's pixels along an axis: how much of which of the source's are in it.
struct Shares {
  static constexpr int kBits = 14;

  struct Pixel {
    int first = 0;
    std::size_t count = 0;
    std::size_t weights = 0;  // where they begin
  };
  std::vector<Pixel> pixels;
  std::vector<std::uint16_t> weights;  // 1 << kBits in sum

  Shares(int source, int target) {
    const double factor = static_cast<double>(source) / target;
    std::vector<double> exact;
    for (int i = 0; i < target; ++i) {
      // Two samples with one between them are an area of a pixel's width, too.
      const double middle = (i + 0.5) * factor, half = std::max(factor, 1.0) / 2;
      const double start = std::clamp(middle - half, 0.0, source - 1.0),
                   end = std::clamp(middle + half, 1.0, double(source));
      const int first = static_cast<int>(start), last = std::min(static_cast<int>(std::ceil(end)), source);
      exact.clear();
      for (int k = first; k < last; ++k) exact.push_back(std::min(end, k + 1.0) - std::max(start, double(k)));
      pixels.push_back({first, exact.size(), weights.size()});
      // Rounded so that their sum is exact.
      double before = 0;
      int given = 0;
      for (const double share : exact) {
        before += share / (end - start);
        const int total = static_cast<int>(std::lround(before * (1 << kBits)));
        weights.push_back(static_cast<std::uint16_t>(total - given));
        given = total;
      }
    }
  }
};

}  // namespace

void scalePixels(const PixelRows& source, const PixelRows& target) {
  if (source.width <= target.width && source.height <= target.height) {
    libyuv::ARGBScale(source.bytes, static_cast<int>(source.bytesPerRow), source.width, source.height, target.bytes,
                      static_cast<int>(target.bytesPerRow), target.width, target.height, libyuv::kFilterBilinear);
    return;
  }
  // Sums of rows have 16 bits, of which 8 are behind the point.
  constexpr int kDropped = Shares::kBits - 8;
  const Shares across(source.width, target.width), down(source.height, target.height);
  const auto length = static_cast<std::size_t>(source.width) * 4;
  std::vector<std::uint32_t> sums(length);
  for (int y = 0; y < target.height; ++y) {
    const Shares::Pixel& rows = down.pixels[static_cast<std::size_t>(y)];
    std::fill(sums.begin(), sums.end(), 1U << (kDropped - 1));
    for (std::size_t k = 0; k < rows.count; ++k) {
      const std::uint8_t* const row = source.bytes + (static_cast<std::size_t>(rows.first) + k) * source.bytesPerRow;
      const std::uint32_t weight = down.weights[rows.weights + k];
      for (std::size_t i = 0; i < length; ++i) sums[i] += weight * row[i];
    }
    for (std::uint32_t& sum : sums) sum >>= kDropped;
    std::uint8_t* pixel = target.bytes + static_cast<std::size_t>(y) * target.bytesPerRow;
    for (const Shares::Pixel& columns : across.pixels) {
      std::uint32_t mean[4] = {1U << 21, 1U << 21, 1U << 21, 1U << 21};
      const std::uint32_t* at = sums.data() + static_cast<std::size_t>(columns.first) * 4;
      for (std::size_t k = 0; k < columns.count; ++k, at += 4) {
        const std::uint32_t weight = across.weights[columns.weights + k];
        for (std::size_t c = 0; c < 4; ++c) mean[c] += weight * at[c];
      }
      for (const std::uint32_t component : mean) *pixel++ = static_cast<std::uint8_t>(component >> 22);
    }
  }
}

}  // namespace tavrel
