#pragma once

#include <string_view>

namespace tavrel {

namespace detail {

/// Where the parameter list of a described function begins, and where its name begins at the latest.
struct FunctionNameEnd {
  std::size_t parameters;
  std::size_t latestStart;
};

constexpr FunctionNameEnd findFunctionNameEnd(std::string_view text) {
  int angles = 0;
  for (std::size_t i = 0; i < text.size(); ++i) {
    const std::string_view rest = text.substr(i);
    if (angles == 0 && rest.starts_with("operator") && i > 0 && (text[i - 1] == ':' || text[i - 1] == ' ')) {
      // Operators may hold brackets, angles and blanks of their own.
      const std::size_t search = i + (rest.starts_with("operator()") ? 10 : 8);
      const std::size_t end = text.find('(', search);
      return {end == std::string_view::npos ? text.size() : end, i};
    }
    if (angles == 0 && rest.starts_with("(anonymous")) {
      i = text.find(')', i);
      if (i == std::string_view::npos) break;
    } else if (text[i] == '<') {
      ++angles;
    } else if (text[i] == '>') {
      --angles;
    } else if (angles == 0 && text[i] == '(') {
      return {i, i};
    }
  }
  return {text.size(), text.size()};
}

/// "f" for "f<int, A<B>>", which must end so.
constexpr std::string_view withoutTemplateArguments(std::string_view name) {
  int depth = 0;
  for (std::size_t i = name.size(); i > 0; --i) {
    if (name[i - 1] == '>') ++depth;
    if (name[i - 1] == '<' && --depth == 0) return name.substr(0, i - 1);
  }
  return name;
}

}  // namespace detail

/// The qualified name in a compiler's full description of a function, a view into it:
/// "void tavrel::TavrelCamera::setPreferredTorchMode(int)" gives "TavrelCamera::setPreferredTorchMode".
/// Namespaces `tavrel` and unnamed ones in front are dropped, and a lambda counts as the function around it.
constexpr std::string_view qualifiedFunctionName(std::string_view description) {
  const auto [end, latestStart] = detail::findFunctionNameEnd(description);
  std::size_t start = latestStart;
  for (int depth = 0; start > 0; --start) {
    const char previous = description[start - 1];
    if (previous == '>' || previous == ')') ++depth;
    if (previous == '<' || previous == '(') --depth;
    if (depth == 0 && (previous == ' ' || previous == '*' || previous == '&')) break;
  }
  std::string_view name = description.substr(start, end - start);
  if (latestStart == end && name.ends_with('>')) name = detail::withoutTemplateArguments(name);
  for (bool isStripped = true; isStripped;) {
    isStripped = false;
    for (const std::string_view prefix : {"tavrel::", "{anonymous}::", "(anonymous namespace)::"}) {
      if (!name.starts_with(prefix)) continue;
      name.remove_prefix(prefix.size());
      isStripped = true;
    }
  }
  return name;
}

}  // namespace tavrel
