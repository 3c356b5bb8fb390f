#pragma once

#include <cstddef>
#include <string>
#include <string_view>
#include <vector>

#include "GPUImage/Filters/Private/ColorTable.h"

namespace tavrel {

/// Walks through the lines of a table's text, which end in LF, CR LF or CR, and the words of a line.
class TableText {
 public:
  explicit TableText(std::string_view text);

  /// Goes to the next line that is neither empty nor, for a `comment` character, a comment. False at the end.
  bool next(char comment = '#');
  /// The line, without blanks around it.
  std::string_view line() const { return line_; }
  std::size_t lineNumber() const { return lineNumber_; }

  /// Exactly `count` finite numbers.
  Expected<std::vector<float>> numbers(std::string_view text, std::size_t count) const;
  /// All that there are.
  Expected<std::vector<float>> numbers(std::string_view text) const;
  Expected<Color> color(std::string_view text) const;
  /// A whole number from 2 to `largest`.
  Expected<std::size_t> size(std::string_view text, std::size_t largest) const;
  /// "line N: WHAT"
  tl::unexpected<Error> failure(const std::string& what) const;

  /// The word at the front, which `text` loses.
  static std::string_view takeWord(std::string_view& text);
  static std::string_view trimmed(std::string_view text);
  /// What may be shown of a file that may be anything.
  static std::string excerpt(std::string_view text);

 private:
  std::string_view rest_;
  std::string_view line_;
  std::size_t lineNumber_ = 0;
};

}  // namespace tavrel
