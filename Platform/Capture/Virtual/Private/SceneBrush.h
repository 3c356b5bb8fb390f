#pragma once

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>

#include "Platform/Capture/Virtual/Private/BgraCanvas.h"
#include "Platform/Capture/Virtual/Private/ScenePortrait.h"

namespace tavrel {

/// What a shape shows at a place.
struct SceneTouch {
  double cover = 0;  ///< 0 … 1
  SceneRgb color{};
};

struct SceneBox {
  double left, top, right, bottom;
};

/// Paints shapes, which are functions of a place: (0, 0) is the canvas's middle, 1 its shorter side.
class SceneBrush {
 public:
  explicit SceneBrush(const BgraCanvas& canvas)
      : canvas_(canvas), unit_(std::min(canvas.width, canvas.height)), pixel_(1 / unit_) {}

  /// The side of a pixel.
  double pixel() const { return pixel_; }
  /// How much of a pixel lies inside of a shape, whose edge is that far away; negative inside.
  double cover(double distance, double softness = 0) const {
    return std::clamp(0.5 - distance / (pixel_ + softness), 0.0, 1.0);
  }

  template <typename Shape>
  void paint(const SceneBox& box, Shape shape) const {
    const auto column = [&](double u) {
      return std::clamp(static_cast<int>(std::floor(u * unit_ + canvas_.width / 2.0)), 0, canvas_.width);
    };
    const auto row = [&](double v) {
      return std::clamp(static_cast<int>(std::floor(v * unit_ + canvas_.height / 2.0)), 0, canvas_.height);
    };
    const int right = std::min(canvas_.width, column(box.right) + 1);
    const int bottom = std::min(canvas_.height, row(box.bottom) + 1);
    for (int y = row(box.top); y < bottom; ++y) {
      for (int x = column(box.left); x < right; ++x) {
        const SceneTouch touch =
            shape((x + 0.5 - canvas_.width / 2.0) * pixel_, (y + 0.5 - canvas_.height / 2.0) * pixel_);
        if (touch.cover <= 0) continue;
        std::uint8_t* const target = canvas_.pixel(x, y);
        for (std::size_t i = 0; i < 3; ++i) {
          const double value = target[2 - i] + (touch.color[i] - target[2 - i]) * touch.cover;
          target[2 - i] = static_cast<std::uint8_t>(std::clamp(value + 0.5, 0.0, 255.0));
        }
        target[3] = 255;
      }
    }
  }

 private:
  const BgraCanvas canvas_;
  const double unit_, pixel_;
};

inline SceneRgb operator+(SceneRgb left, const SceneRgb& right) {
  for (std::size_t i = 0; i < 3; ++i) left[i] += right[i];
  return left;
}
inline SceneRgb operator*(SceneRgb color, double factor) {
  for (double& component : color) component *= factor;
  return color;
}
inline SceneRgb mixed(const SceneRgb& from, const SceneRgb& to, double amount) {
  return from * (1 - amount) + to * amount;
}

/// How far a place is from an ellipse's edge, nearly; negative inside.
inline double ellipse(double u, double v, double radiusU, double radiusV) {
  const double place = std::hypot(u / radiusU, v / radiusV);
  const double slope = std::hypot(u / (radiusU * radiusU), v / (radiusV * radiusV));
  return slope > 0 ? place * (place - 1) / slope : -std::min(radiusU, radiusV);
}
inline double bell(double u, double v, double width, double height) {
  return std::exp(-(u * u / (width * width) + v * v / (height * height)));
}
inline double smooth(double from, double to, double value) {
  const double share = std::clamp((value - from) / (to - from), 0.0, 1.0);
  return share * share * (3 - 2 * share);
}

/// The same number for a place on every run: 0 … 1.
inline double scatter(int x, int y) {
  auto mixed = static_cast<std::uint32_t>(x) * 0x9E3779B1U ^ static_cast<std::uint32_t>(y) * 0x85EBCA77U;
  mixed = (mixed ^ (mixed >> 15)) * 0x2C1B3C6DU;
  mixed = (mixed ^ (mixed >> 12)) * 0x297A2D39U;
  return static_cast<double>(mixed >> 8 & 0xFFFF) / 65535;
}
/// The same without steps, on squares with sides of 1: -1 … 1.
inline double waves(double x, double y) {
  const double left = std::floor(x), top = std::floor(y);
  const double across = smooth(0, 1, x - left), down = smooth(0, 1, y - top);
  const int i = static_cast<int>(left), j = static_cast<int>(top);
  const double upper = scatter(i, j) * (1 - across) + scatter(i + 1, j) * across;
  const double lower = scatter(i, j + 1) * (1 - across) + scatter(i + 1, j + 1) * across;
  return (upper * (1 - down) + lower * down) * 2 - 1;
}

}  // namespace tavrel
