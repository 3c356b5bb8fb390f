#include "GPUImage/Private/DrawnParts.h"

#include <algorithm>
#include <cmath>

namespace tavrel {
namespace {

struct Area {
  int left, bottom, right, top;
};

/// Grown to whole pixels, and no larger than the frame.
Area wholeArea(const std::optional<Rect>& area, int width, int height) {
  if (!area) return {0, 0, width, height};
  const auto edge = [](double value, int last) {
    return static_cast<int>(std::clamp(value, 0.0, static_cast<double>(last)));
  };
  return {edge(std::floor(area->minX()), width), edge(std::floor(area->minY()), height),
          edge(std::ceil(area->maxX()), width), edge(std::ceil(area->maxY()), height)};
}

void sortOnce(std::vector<int>& edges) {
  std::ranges::sort(edges);
  edges.erase(std::unique(edges.begin(), edges.end()), edges.end());
}

/// One row of the frame, from left to right.
std::vector<DrawnPart> rowOf(std::span<const Area> areas, const std::vector<int>& columns, int bottom, int top) {
  std::vector<DrawnPart> row;
  for (std::size_t i = 0; i + 1 < columns.size(); ++i) {
    DrawnPart part = {.left = columns[i], .bottom = bottom, .right = columns[i + 1], .top = top};
    for (std::size_t k = 0; k < areas.size(); ++k) {
      const Area& area = areas[k];
      const bool isInside =
          area.left <= part.left && part.right <= area.right && area.bottom <= bottom && top <= area.top;
      if (isInside) part.areas |= 1U << k;
    }
    if (!row.empty() && row.back().areas == part.areas) {
      row.back().right = part.right;
    } else {
      row.push_back(part);
    }
  }
  return row;
}

}  // namespace

std::vector<DrawnPart> drawnParts(int width, int height, std::span<const std::optional<Rect>> areas) {
  std::vector<Area> whole;
  std::vector<int> columns = {0, width}, rows = {0, height};
  for (const auto& area : areas) {
    const Area& added = whole.emplace_back(wholeArea(area, width, height));
    columns.insert(columns.end(), {added.left, added.right});
    rows.insert(rows.end(), {added.bottom, added.top});
  }
  sortOnce(columns);
  sortOnce(rows);

  std::vector<DrawnPart> parts;
  std::size_t below = 0;  // where the row below begins
  for (std::size_t i = 0; i + 1 < rows.size(); ++i) {
    const std::vector<DrawnPart> row = rowOf(whole, columns, rows[i], rows[i + 1]);
    const bool continuesBelow = std::equal(parts.begin() + static_cast<std::ptrdiff_t>(below), parts.end(), row.begin(),
                                           row.end(), [](const DrawnPart& a, const DrawnPart& b) {
                                             return a.areas == b.areas && a.left == b.left && a.right == b.right;
                                           });
    if (continuesBelow && !parts.empty()) {
      for (std::size_t k = below; k < parts.size(); ++k) parts[k].top = rows[i + 1];
    } else {
      below = parts.size();
      parts.insert(parts.end(), row.begin(), row.end());
    }
  }
  std::ranges::stable_sort(parts, {}, &DrawnPart::areas);
  return parts;
}

}  // namespace tavrel
