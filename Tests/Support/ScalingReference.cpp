#include "Support/ScalingReference.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <vector>

namespace tavrel::test {
namespace {

double lightOf(double value) { return value <= 0.04045 ? value / 12.92 : std::pow((value + 0.055) / 1.055, 2.4); }
double sRGBOf(double light) {
  light = std::clamp(light, 0.0, 1.0);
  return light <= 0.0031308 ? light * 12.92 : 1.055 * std::pow(light, 1 / 2.4) - 0.055;
}

}  // namespace

Picture zonePlate(int width, int height) {
  return {width, height, [&](int x, int y) {
            const double square = std::pow(x - width / 2.0, 2) + std::pow(y - height / 2.0, 2);
            const int noise = (x * 7919 + y * 104729) % 256;
            return Pixel{static_cast<int>(std::lround(127.5 + 127.5 * std::cos(square * 3.14159265 / width))), noise,
                         x * 255 / width, 255};
          }};
}

double triangle(double x) { return std::max(0.0, 1 - std::abs(x)); }
double bicubic(double x) {
  x = std::abs(x);
  return x < 1 ? (1.5 * x - 2.5) * x * x + 1 : x < 2 ? ((2.5 - 0.5 * x) * x - 4) * x + 2 : 0;
}
Picture scaled(const Picture& source, int width, int height, double (*kernel)(double), bool inLight) {
  const auto weights = [&](int place, int length, int sourceLength) {
    const double factor = static_cast<double>(sourceLength) / length, reach = std::max(1.0, factor);
    std::vector<double> result(static_cast<std::size_t>(sourceLength));
    double sum = 0;
    for (int i = 0; i < sourceLength; ++i)
      sum += result[static_cast<std::size_t>(i)] = kernel((i + 0.5 - (place + 0.5) * factor) / reach);
    for (double& weight : result) weight /= sum;
    return result;
  };
  return {width, height, [&](int x, int y) {
            const auto across = weights(x, width, source.width), down = weights(y, height, source.height);
            std::array<double, 3> sum{};
            for (int j = 0; j < source.height; ++j) {
              if (down[static_cast<std::size_t>(j)] == 0) continue;
              for (int i = 0; i < source.width; ++i) {
                const double weight = across[static_cast<std::size_t>(i)] * down[static_cast<std::size_t>(j)];
                if (weight == 0) continue;
                const Pixel& pixel = source.at(i, j);
                const int values[] = {pixel.r, pixel.g, pixel.b};
                for (std::size_t c = 0; c < 3; ++c)
                  sum[c] += weight * (inLight ? lightOf(values[c] / 255.0) : values[c] / 255.0);
              }
            }
            const auto value = [&](std::size_t c) {
              return static_cast<int>(std::lround(255 * std::clamp(inLight ? sRGBOf(sum[c]) : sum[c], 0.0, 1.0)));
            };
            return Pixel{value(0), value(1), value(2), 255};
          }};
}

}  // namespace tavrel::test
