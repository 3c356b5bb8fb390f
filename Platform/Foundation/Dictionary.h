#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <variant>

#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Export.h"

namespace tavrel {

/// A setting's value: a truth value, a whole or a real number, a text or bytes.
using Value = std::variant<bool, std::int64_t, double, std::string, Data>;

/// Settings by key, for instance the output settings of a movie track.
using Dictionary = std::map<std::string, Value, std::less<>>;

/// The number held by `value`, truth values counting as 0 and 1; nothing when it is a text or bytes.
TAVREL_API std::optional<double> numberOf(const Value& value);
/// The number stored under `key`; nothing when the key is absent or does not hold a number.
TAVREL_API std::optional<double> numberFor(const Dictionary& dictionary, std::string_view key);

}  // namespace tavrel
