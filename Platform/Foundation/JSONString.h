#pragma once

#include <string>
#include <string_view>

#include "Platform/Foundation/Export.h"

namespace tavrel {

/// A text as JSON (RFC 8259) writes it, quotes included.
TAVREL_API std::string jsonString(std::string_view text);

}  // namespace tavrel
