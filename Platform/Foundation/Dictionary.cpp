#include "Platform/Foundation/Dictionary.h"

namespace tavrel {

std::optional<double> numberOf(const Value& value) {
  if (const auto* boolean = std::get_if<bool>(&value)) return *boolean ? 1 : 0;
  if (const auto* integer = std::get_if<std::int64_t>(&value)) return static_cast<double>(*integer);
  if (const auto* real = std::get_if<double>(&value)) return *real;
  return std::nullopt;
}

std::optional<double> numberFor(const Dictionary& dictionary, std::string_view key) {
  const auto entry = dictionary.find(key);
  return entry == dictionary.end() ? std::nullopt : numberOf(entry->second);
}

}  // namespace tavrel
