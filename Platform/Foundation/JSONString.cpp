#include "Platform/Foundation/JSONString.h"

#include <fmt/format.h>

namespace tavrel {

std::string jsonString(std::string_view text) {
  std::string quoted = "\"";
  for (const char character : text) {
    if (character == '"' || character == '\\') {
      quoted += '\\';
      quoted += character;
    } else if (static_cast<unsigned char>(character) < 0x20) {
      quoted += fmt::format("\\u{:04x}", static_cast<unsigned>(character));
    } else {
      quoted += character;
    }
  }
  return quoted + '"';
}

}  // namespace tavrel
