#pragma once

#include <cstring>
#include <string>
#include <string_view>

namespace tavrel {

/// Makes `text` consist of the pieces, in one go: a row of `append` costs several times as much.
template <typename... Pieces>
[[gnu::always_inline]] inline void concatenate(std::string& text, const Pieces&... pieces) {
  text.resize((pieces.size() + ...));
  char* end = text.data();
  const auto put = [&end](std::string_view piece) {
    if (!piece.empty()) std::memcpy(end, piece.data(), piece.size());
    end += piece.size();
  };
  (put(pieces), ...);
}

}  // namespace tavrel
