#include "Support/EffectsComposite.h"

#include <algorithm>
#include <cmath>

#include "Support/FilterReference.h"

namespace tavrel::test {
namespace {

/// How near to the edge a pixel counts as being on it.
constexpr double kEdge = 1;

/// Colours by alpha, so that what no alpha covers has no part in what is between pixels.
Picture multiplied(const Picture& picture) {
  return {picture.width, picture.height, [&](int x, int y) {
            Pixel pixel = picture.at(x, y);
            for (int* color : {&pixel.r, &pixel.g, &pixel.b}) *color = (*color * pixel.a + 127) / 255;
            return pixel;
          }};
}

double offBy(const Pixel& pixel, const Rgba& expected) {
  const int components[] = {pixel.r, pixel.g, pixel.b, pixel.a};
  double largest = 0;
  for (std::size_t i = 0; i < 4; ++i) largest = std::max(largest, std::abs(components[i] - expected[i] * 255));
  return largest;
}

}  // namespace

::testing::AssertionResult isComposite(const Picture& result, const Picture& frame, const Picture& sticker,
                                       const Rect& place, double radians) {
  if (result.width != frame.width || result.height != frame.height) {
    return ::testing::AssertionFailure() << "the size is " << result.width << "x" << result.height;
  }
  const ReferencePicture below(frame);
  const ReferencePicture above(multiplied(sticker));
  int covered = 0;
  for (int y = 0; y < frame.height; ++y) {
    for (int x = 0; x < frame.width; ++x) {
      // Back to the rectangle's own axes, from its centre.
      const double dx = x + 0.5 - place.midX();
      const double dy = y + 0.5 - place.midY();
      const double u = std::cos(radians) * dx + std::sin(radians) * dy;
      const double v = std::cos(radians) * dy - std::sin(radians) * dx;
      const double outside = std::max(std::abs(u) - place.size.width / 2, std::abs(v) - place.size.height / 2);
      if (std::abs(outside) < kEdge) continue;
      Rgba expected = below.clampedAt(x, y);
      if (outside < 0) {
        ++covered;
        const Rgba color = above.sampled(u / place.size.width + 0.5, v / place.size.height + 0.5);
        for (std::size_t i = 0; i < 3; ++i) expected[i] += color[i] - expected[i] * color[3];
      }
      if (offBy(result.at(x, y), expected) > 2) {
        return ::testing::AssertionFailure() << x << ", " << y << ": " << result.at(x, y) << " instead of "
                                             << Pixel{static_cast<int>(std::lround(expected[0] * 255)),
                                                      static_cast<int>(std::lround(expected[1] * 255)),
                                                      static_cast<int>(std::lround(expected[2] * 255)), 255};
      }
    }
  }
  if (covered < 100) return ::testing::AssertionFailure() << "only " << covered << " pixels are covered";
  return ::testing::AssertionSuccess();
}

}  // namespace tavrel::test
