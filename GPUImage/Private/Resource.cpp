#include "GPUImage/Private/Resource.h"

#include <system_error>
#include <utility>

#include "Platform/Foundation/Data.h"

namespace tavrel {

std::optional<std::string> readResource(const std::filesystem::path& name, const char* extension) {
  std::filesystem::path file = name;
  if (!file.has_extension()) file.replace_extension(extension);
  std::error_code ignored;
  if (file.is_relative() && !std::filesystem::exists(file, ignored)) {
    file = std::filesystem::read_symlink("/proc/self/exe", ignored).parent_path() / file;
  }
  const auto bytes = readFile(file);
  if (!bytes) return std::nullopt;
  return std::string(bytes->begin(), bytes->end());
}

}  // namespace tavrel
