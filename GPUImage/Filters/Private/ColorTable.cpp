#include "GPUImage/Filters/Private/ColorTable.h"

#include <algorithm>

namespace tavrel {
namespace {

/// The entries on both sides of a place on an edge, and how near it is to the second.
struct Place {
  std::size_t below;
  std::size_t above;
  float fraction;
};

Place placeOf(float input, float minimum, float maximum, std::size_t size) {
  const float last = static_cast<float>(size - 1);
  const float position = std::clamp((input - minimum) / (maximum - minimum), 0.0F, 1.0F) * last;
  const auto below = static_cast<std::size_t>(position);
  return {below, std::min(below + 1, size - 1), position - static_cast<float>(below)};
}

Color mixed(const Color& first, const Color& second, float fraction) {
  Color result;
  for (std::size_t i = 0; i < result.size(); ++i) result[i] = first[i] + (second[i] - first[i]) * fraction;
  return result;
}

}  // namespace

Color ColorStage::at(const Color& input) const {
  std::array<Place, 3> places;
  for (std::size_t i = 0; i < places.size(); ++i) {
    places[i] = placeOf(input[i], domainMinimum[i], domainMaximum[i], size);
  }
  if (kind == Kind::curves) {
    Color result;
    for (std::size_t i = 0; i < result.size(); ++i) {
      result[i] = mixed(colors[places[i].below], colors[places[i].above], places[i].fraction)[i];
    }
    return result;
  }
  // Not a structured binding, which clang 14 does not let a lambda capture.
  const Place& red = places[0];
  const Place& green = places[1];
  const Place& blue = places[2];
  const auto alongRed = [&](std::size_t g, std::size_t b) {
    const std::size_t row = (b * size + g) * size;
    return mixed(colors[row + red.below], colors[row + red.above], red.fraction);
  };
  const auto alongGreen = [&](std::size_t b) {
    return mixed(alongRed(green.below, b), alongRed(green.above, b), green.fraction);
  };
  return mixed(alongGreen(blue.below), alongGreen(blue.above), blue.fraction);
}

Color ColorTable::at(const Color& input) const {
  Color color = input;
  if (takesVideoRange) {
    for (float& component : color) component = kVideoBlack + component * kVideoSpan;
  }
  for (const ColorStage& stage : stages) color = stage.at(color);
  if (givesVideoRange) {
    for (float& component : color) component = (component - kVideoBlack) / kVideoSpan;
  }
  return color;
}

}  // namespace tavrel
