#pragma once

#include <string>
#include <string_view>

namespace tavrel {

/// Appends `bytes` as UTF-8: every byte that is not part of a well-formed character becomes U+FFFD.
void appendUtf8(std::string& text, std::string_view bytes);
/// The same as a text: `bytes` themselves where they are ASCII, otherwise what `room` is set to.
std::string_view utf8Of(std::string_view bytes, std::string& room);

}  // namespace tavrel
