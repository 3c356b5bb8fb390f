#pragma once

#include <cstddef>
#include <cstdint>
#include <filesystem>
#include <vector>

#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"

namespace tavrel {

/// A block of bytes.
using Data = std::vector<std::uint8_t>;

/// Reads a whole file. Fails with the system's error ("posix") if it cannot be read or is larger than `limit` bytes.
TAVREL_API Expected<Data> readFile(const std::filesystem::path& path, std::size_t limit = std::size_t{1} << 31);

}  // namespace tavrel
