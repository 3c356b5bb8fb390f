#pragma once

#include <string>
#include <string_view>

#include "Platform/Foundation/Export.h"

namespace tavrel {

/// A text as JSON (RFC 8259) writes it, quotes included. Bytes that are not UTF-8 become U+FFFD.
TAVREL_API std::string jsonString(std::string_view text);

}  // namespace tavrel
