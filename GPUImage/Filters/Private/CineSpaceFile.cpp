#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <functional>
#include <utility>

#include "GPUImage/Filters/Private/ColorTable.h"
#include "GPUImage/Filters/Private/TableText.h"

namespace tavrel {
namespace {

/// A curve through points.
struct Curve {
  std::vector<float> from;
  std::vector<float> to;

  float at(float value) const {
    const auto above = std::upper_bound(from.begin(), from.end(), value);
    if (above == from.begin()) return to.front();
    if (above == from.end()) return to.back();
    const auto i = static_cast<std::size_t>(above - from.begin());
    return to[i - 1] + (to[i] - to[i - 1]) * (value - from[i - 1]) / (from[i] - from[i - 1]);
  }
  bool isIdentity() const { return from == to && from.front() == 0 && from.back() == 1; }
};

Expected<Curve> readCurve(TableText& lines) {
  if (!lines.next('\0')) return lines.failure("a curve is missing");
  const auto count = lines.size(lines.line(), 65536);
  if (!count) return tl::unexpected(count.error());
  Curve curve;
  for (std::vector<float>* const side : {&curve.from, &curve.to}) {
    if (!lines.next('\0')) return lines.failure("the points of a curve are missing");
    auto numbers = lines.numbers(lines.line(), *count);
    if (!numbers) return tl::unexpected(numbers.error());
    *side = std::move(*numbers);
  }
  if (std::adjacent_find(curve.from.begin(), curve.from.end(), std::greater_equal<>()) != curve.from.end())
    return lines.failure("the inputs of a curve do not grow");
  return curve;
}

/// Curves of evenly spaced entries, so many that points in between are met.
ColorStage stageOf(const std::array<Curve, 3>& curves) {
  const auto isLine = [](const Curve& curve) { return curve.from.size() == 2; };
  ColorStage stage{.kind = ColorStage::Kind::curves,
                   .size = std::all_of(curves.begin(), curves.end(), isLine) ? std::size_t{2} : std::size_t{8192}};
  stage.colors.resize(stage.size);
  for (std::size_t c = 0; c < 3; ++c) {
    stage.domainMinimum[c] = curves[c].from.front();
    stage.domainMaximum[c] = curves[c].from.back();
    const float span = stage.domainMaximum[c] - stage.domainMinimum[c];
    for (std::size_t i = 0; i < stage.size; ++i) {
      const float place = static_cast<float>(i) / static_cast<float>(stage.size - 1);
      stage.colors[i][c] = curves[c].at(stage.domainMinimum[c] + span * place);
    }
  }
  return stage;
}

/// Curves behind curves, as one.
ColorStage composed(const ColorStage& first, const ColorStage& second) {
  ColorStage both = first;
  both.size = 16384;
  both.colors.resize(both.size);
  for (std::size_t i = 0; i < both.size; ++i) {
    const float place = static_cast<float>(i) / static_cast<float>(both.size - 1);
    Color input;
    for (std::size_t c = 0; c < 3; ++c)
      input[c] = first.domainMinimum[c] + (first.domainMaximum[c] - first.domainMinimum[c]) * place;
    both.colors[i] = second.at(first.at(input));
  }
  return both;
}

}  // namespace

Expected<ColorTable> parseCineSpace(std::string_view text) {
  TableText lines(text);
  lines.next();
  if (!lines.next()) return lines.failure("the file ends before 1D or 3D");
  const bool isLattice = lines.line() == "3D";
  if (!isLattice && lines.line() != "1D")
    return lines.failure(fmt::format("\"{}\" is neither 1D nor 3D", TableText::excerpt(lines.line())));

  TableText ahead = lines;
  if (ahead.next() && ahead.line() == "BEGIN METADATA") {
    while (ahead.line() != "END METADATA") {
      if (!ahead.next()) return ahead.failure("END METADATA is missing");
    }
    lines = ahead;
  }
  std::array<Curve, 3> curves;
  for (Curve& curve : curves) {
    auto read = readCurve(lines);
    if (!read) return tl::unexpected(read.error());
    curve = std::move(*read);
  }
  ColorTable table;
  if (!std::all_of(curves.begin(), curves.end(), [](const Curve& curve) { return curve.isIdentity(); }))
    table.stages.push_back(stageOf(curves));

  if (!lines.next()) return lines.failure("the size of the table is missing");
  std::string_view sizes = lines.line();
  const auto size = lines.size(TableText::takeWord(sizes), isLattice ? 256 : 65536);
  if (!size) return tl::unexpected(size.error());
  while (isLattice && !sizes.empty()) {
    const auto other = lines.size(TableText::takeWord(sizes), 256);
    if (!other || *other != *size) return lines.failure("the sides of the table differ; only cubes can be read");
  }
  ColorStage stage{.kind = isLattice ? ColorStage::Kind::lattice : ColorStage::Kind::curves, .size = *size};
  while (stage.colors.size() < stage.rows()) {
    if (!lines.next())
      return lines.failure(
          fmt::format("the file ends after {} of {} rows of colours", stage.colors.size(), stage.rows()));
    auto color = lines.color(lines.line());
    if (!color) return tl::unexpected(color.error());
    stage.colors.push_back(*color);
  }
  if (isLattice || table.stages.empty()) {
    table.stages.push_back(std::move(stage));
  } else {
    table.stages.front() = composed(table.stages.front(), stage);
  }
  return table;
}

}  // namespace tavrel
