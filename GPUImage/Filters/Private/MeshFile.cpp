#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "GPUImage/Filters/Private/ColorTable.h"
#include "GPUImage/Filters/Private/TableText.h"

namespace tavrel {
namespace {

/// The largest value of whole numbers of the fewest bits that hold `largest`.
float scaleFor(float largest) {
  // Tables that end below white, or a little above it, are of these depths all the same.
  for (const int bits : {8, 10, 12, 14}) {
    const auto scale = static_cast<float>((1 << bits) - 1);
    if (largest <= scale * 1.2F) return scale;
  }
  return 65535;
}

}  // namespace

/// A line of levels, as many as the lattice has along an edge; then the rows of whole numbers, blue growing fastest.
Expected<ColorTable> parse3dl(std::string_view text) {
  constexpr std::size_t kLargestSize = 256;
  TableText lines(text);
  std::vector<float> levels;
  std::vector<Color> rows;
  float scale = 0;
  while (lines.next()) {
    std::string_view rest = lines.line();
    if (rest == "3DMESH" || rest.starts_with("LUT") || rest.starts_with("gamma")) continue;
    if (rest.starts_with("Mesh")) {  // steps and depth, as powers of two
      TableText::takeWord(rest);
      const auto powers = lines.numbers(rest, 2);
      if (!powers) return tl::unexpected(powers.error());
      if ((*powers)[1] < 8 || (*powers)[1] > 16)
        return lines.failure(fmt::format("the depth is {} bits; it must be 8 to 16", (*powers)[1]));
      scale = std::exp2((*powers)[1]) - 1;
    } else if (levels.empty()) {
      auto numbers = lines.numbers(rest);
      if (!numbers) return tl::unexpected(numbers.error());
      if (numbers->size() < 2 || numbers->size() > kLargestSize)
        return lines.failure(fmt::format("there are {} levels; a table has 2 to {}", numbers->size(), kLargestSize));
      levels = std::move(*numbers);
    } else if (rows.size() == levels.size() * levels.size() * levels.size()) {
      return lines.failure(fmt::format("there are more than the {} rows of {} levels", rows.size(), levels.size()));
    } else {
      auto color = lines.color(rest);
      if (!color) return tl::unexpected(color.error());
      rows.push_back(*color);
    }
  }
  const std::size_t size = levels.size();
  if (size == 0) return lines.failure("the file has no line of levels");
  if (rows.size() < size * size * size)
    return lines.failure(fmt::format("the file ends after {} of {} rows", rows.size(), size * size * size));

  if (scale == 0) {
    float largest = 0;
    for (const Color& row : rows) largest = std::max({largest, row[0], row[1], row[2]});
    scale = scaleFor(largest);
  }
  ColorStage lattice{.size = size, .colors = std::vector<Color>(rows.size())};
  for (std::size_t i = 0; i < rows.size(); ++i) {
    const std::size_t blue = i % size, green = i / size % size, red = i / size / size;
    Color& color = lattice.colors[(blue * size + green) * size + red];
    for (std::size_t c = 0; c < 3; ++c) color[c] = rows[i][c] / scale;
  }
  ColorTable table;
  const float levelScale = scaleFor(*std::max_element(levels.begin(), levels.end()));
  ColorStage curves{.kind = ColorStage::Kind::curves, .size = size};
  bool isEven = true;
  for (std::size_t i = 0; i < size; ++i) {
    const float even = static_cast<float>(i) * levelScale / static_cast<float>(size - 1);
    isEven = isEven && std::abs(levels[i] - even) <= 2;
    const float level = levels[i] / levelScale;
    curves.colors.push_back({level, level, level});
  }
  if (!isEven) table.stages.push_back(std::move(curves));
  table.stages.push_back(std::move(lattice));
  return table;
}

}  // namespace tavrel
