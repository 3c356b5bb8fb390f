#include "Platform/Foundation/JSONString.h"

#include <algorithm>
#include <nlohmann/json.hpp>

namespace tavrel {

std::string jsonString(std::string_view text) {
  return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

std::string plainText(std::string_view text) {
  auto plain = nlohmann::json::parse(jsonString(text)).get<std::string>();
  std::ranges::replace_if(
      plain, [](unsigned char byte) { return byte < ' ' || byte == 127; }, ' ');
  return plain;
}

}  // namespace tavrel
