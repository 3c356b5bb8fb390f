#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <variant>

#include "Platform/Foundation/Data.h"

namespace tavrel {

/// A setting's value: a truth value, a whole or a real number, a text or bytes.
using Value = std::variant<bool, std::int64_t, double, std::string, Data>;

/// Settings by key, for instance the output settings of a movie track.
using Dictionary = std::map<std::string, Value, std::less<>>;

/// The number held by `value`, truth values counting as 0 and 1; nothing when it is a text or bytes.
inline std::optional<double> numberOf(const Value& value) {
  if (const auto* boolean = std::get_if<bool>(&value)) return *boolean ? 1 : 0;
  if (const auto* integer = std::get_if<std::int64_t>(&value)) return static_cast<double>(*integer);
  if (const auto* real = std::get_if<double>(&value)) return *real;
  return std::nullopt;
}

/// The number stored under `key`; nothing when the key is absent or does not hold a number.
inline std::optional<double> numberFor(const Dictionary& dictionary, std::string_view key) {
  const auto entry = dictionary.find(key);
  return entry == dictionary.end() ? std::nullopt : numberOf(entry->second);
}

}  // namespace tavrel
