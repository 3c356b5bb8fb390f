#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "GPUImage/Filters/Private/ColorTable.h"
#include "GPUImage/Filters/Private/TableText.h"

namespace tavrel {
namespace {

using Kind = ColorStage::Kind;

class CubeParser {
 public:
  explicit CubeParser(std::string_view text) : text_(text) {}

  Expected<ColorTable> parse() {
    while (text_.next()) {
      if (const auto read = readLine(text_.line()); !read) return tl::unexpected(read.error());
    }
    if (table_.stages.empty()) return text_.failure("the file has no LUT_1D_SIZE or LUT_3D_SIZE");
    if (const std::size_t found = rowsRead(); found < rowsExpected()) {
      return text_.failure(fmt::format("the file ends after {} of {} rows of colours", found, rowsExpected()));
    }
    return std::move(table_);
  }

 private:
  Expected<void> readLine(std::string_view line) {
    const char first = line.front();
    if ((first >= '0' && first <= '9') || first == '-' || first == '+' || first == '.') return readColor(line);
    std::string_view rest = line;
    const std::string_view keyword = TableText::takeWord(rest);
    if (keyword == "TITLE" || keyword == "BMD_TITLE") return {};
    if (keyword == "LUT_1D_SIZE") return readSize(rest, Kind::curves, 65536);
    if (keyword == "LUT_3D_SIZE") return readSize(rest, Kind::lattice, 256);
    if (keyword == "LUT_IN_VIDEO_RANGE") return setFlag(keyword, rest, table_.takesVideoRange);
    if (keyword == "LUT_OUT_VIDEO_RANGE") return setFlag(keyword, rest, table_.givesVideoRange);
    if (keyword == "DOMAIN_MIN") {
      return readDomain(keyword, rest, 3,
                        [&](const std::vector<float>& edge) { std::copy(edge.begin(), edge.end(), minimum_.begin()); });
    }
    if (keyword == "DOMAIN_MAX") {
      return readDomain(keyword, rest, 3,
                        [&](const std::vector<float>& edge) { std::copy(edge.begin(), edge.end(), maximum_.begin()); });
    }
    if (keyword == "LUT_1D_INPUT_RANGE" || keyword == "LUT_3D_INPUT_RANGE") {
      Range& range = keyword == "LUT_1D_INPUT_RANGE" ? curvesRange_ : latticeRange_;
      return readDomain(keyword, rest, 2, [&](const std::vector<float>& ends) { range = Range(ends[0], ends[1]); });
    }
    return text_.failure(
        fmt::format("\"{}\" is neither a keyword of this format nor a number", TableText::excerpt(line)));
  }

  Expected<void> setFlag(std::string_view keyword, std::string_view rest, bool& flag) {
    if (!rest.empty()) return text_.failure(fmt::format("\"{}\" follows {}", TableText::excerpt(rest), keyword));
    flag = true;
    return {};
  }

  template <typename Setter>
  Expected<void> readDomain(std::string_view keyword, std::string_view text, std::size_t count, const Setter& set) {
    if (rowsRead() > 0) return text_.failure(fmt::format("{} comes after the colours; it must come first", keyword));
    return text_.numbers(text, count).map(set);
  }

  Expected<void> readSize(std::string_view text, Kind kind, std::size_t largest) {
    for (const ColorStage& stage : table_.stages) {
      if (stage.kind == kind || rowsRead() > 0)
        return text_.failure("the size of the table is given twice; one 1D and one 3D table can be read");
    }
    return text_.size(text, largest).map([&](std::size_t size) {
      // Curves come first whatever the order of the sizes.
      const auto place = kind == Kind::curves ? table_.stages.begin() : table_.stages.end();
      table_.stages.insert(place, ColorStage{.kind = kind, .size = size});
    });
  }

  Expected<void> readColor(std::string_view line) {
    if (table_.stages.empty()) return text_.failure("colours come before LUT_1D_SIZE or LUT_3D_SIZE");
    if (rowsRead() == 0) {
      if (auto checked = setDomains(); !checked) return checked;
    }
    for (ColorStage& stage : table_.stages) {
      if (stage.colors.size() == stage.rows()) continue;
      return text_.color(line).map([&](const Color& color) { stage.colors.push_back(color); });
    }
    return text_.failure(
        fmt::format("there are more rows of colours than the {} that the size asks for", rowsExpected()));
  }

  /// DOMAIN_MIN and DOMAIN_MAX are for what comes first, and the ranges for the tables that they name.
  Expected<void> setDomains() {
    table_.stages.front().domainMinimum = minimum_;
    table_.stages.front().domainMaximum = maximum_;
    for (ColorStage& stage : table_.stages) {
      const Range& range = stage.kind == Kind::curves ? curvesRange_ : latticeRange_;
      if (range != Range(0, 1)) {
        stage.domainMinimum.fill(range.first);
        stage.domainMaximum.fill(range.second);
      }
      for (std::size_t i = 0; i < 3; ++i) {
        if (stage.domainMinimum[i] < stage.domainMaximum[i]) continue;
        return text_.failure(fmt::format("the domain runs from {} to {}; the second must be the larger",
                                         stage.domainMinimum[i], stage.domainMaximum[i]));
      }
    }
    return {};
  }

  std::size_t rowsRead() const {
    std::size_t sum = 0;
    for (const ColorStage& stage : table_.stages) sum += stage.colors.size();
    return sum;
  }
  std::size_t rowsExpected() const {
    std::size_t sum = 0;
    for (const ColorStage& stage : table_.stages) sum += stage.rows();
    return sum;
  }

  using Range = std::pair<float, float>;

  TableText text_;
  ColorTable table_;
  Color minimum_{0, 0, 0};
  Color maximum_{1, 1, 1};
  Range curvesRange_{0, 1};
  Range latticeRange_{0, 1};
};

}  // namespace

Expected<ColorTable> parseCube(std::string_view text) { return CubeParser(text).parse(); }

Expected<ColorTable> parseColorTable(std::string_view text) {
  TableText lines(text);
  if (lines.next() && lines.line().starts_with("CSPLUTV100")) return parseCineSpace(text);
  const std::string_view line = lines.line();
  if (line.starts_with("3DMESH") || line.starts_with("Mesh")) return parse3dl(text);
  // Other kinds begin with a word.
  const auto numbers = lines.numbers(line);
  return numbers && numbers->size() > 1 ? parse3dl(text) : parseCube(text);
}

}  // namespace tavrel
