#pragma once

#include <string>
#include <string_view>

#include "Platform/Foundation/Export.h"

namespace tavrel {

/// `text` as a JSON string (RFC 8259), quotes included. Invalid UTF-8 becomes U+FFFD.
TAVREL_API std::string jsonString(std::string_view text);

/// `text` as one line of text to be shown: invalid UTF-8 becomes U+FFFD, control characters become spaces.
TAVREL_API std::string plainText(std::string_view text);

}  // namespace tavrel
