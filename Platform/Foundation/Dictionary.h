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

/// A setting's value: Boolean, integer, real number, text or bytes.
using Value = std::variant<bool, std::int64_t, double, std::string, Data>;

/// Settings by key, such as the output settings of a movie track.
using Dictionary = std::map<std::string, Value, std::less<>>;

/// `value` as a number, with Booleans as 0 and 1; nothing for text and bytes.
TAVREL_API std::optional<double> numberOf(const Value& value);
/// The number under `key`; nothing if there is none.
TAVREL_API std::optional<double> numberFor(const Dictionary& dictionary, std::string_view key);

}  // namespace tavrel
