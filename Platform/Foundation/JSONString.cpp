#include "Platform/Foundation/JSONString.h"

#include <nlohmann/json.hpp>

namespace tavrel {

std::string jsonString(std::string_view text) {
  return nlohmann::json(text).dump(-1, ' ', false, nlohmann::json::error_handler_t::replace);
}

}  // namespace tavrel
