#pragma once

#include <filesystem>
#include <optional>
#include <string>

namespace tavrel {

/// The text of a resource file: `name` with `extension` appended, or else `name` itself, looked for as it stands and
/// then beside the program. Nothing when none can be read.
std::optional<std::string> readResource(const std::filesystem::path& name, const char* extension);

}  // namespace tavrel
