#include "GPUImage/Private/Resource.h"

#include <system_error>
#include <utility>

#include "Platform/Foundation/Data.h"

namespace tavrel {

std::optional<std::string> readResource(const std::filesystem::path& name, const char* extension) {
  std::error_code ignored;
  const auto programFolder = std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path();
  for (const auto& folder : {std::filesystem::path(), programFolder}) {
    for (const auto& file : {folder / (name.string() + "." + extension), folder / name}) {
      if (!std::filesystem::is_regular_file(file, ignored)) continue;
      if (const auto bytes = readFile(file)) return std::string(bytes->begin(), bytes->end());
    }
  }
  return std::nullopt;
}

}  // namespace tavrel
