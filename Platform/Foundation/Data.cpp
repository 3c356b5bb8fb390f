#include "Platform/Foundation/Data.h"

#include <fmt/format.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdio>
#include <memory>
#include <system_error>

namespace tavrel {
namespace {

auto systemFailure(const std::filesystem::path& path, int error) {
  return failure("posix", error,
                 fmt::format("cannot read {}: {}", path.string(), std::generic_category().message(error)));
}

}  // namespace

Expected<Data> readFile(const std::filesystem::path& path, std::size_t limit) {
  const std::unique_ptr<std::FILE, int (*)(std::FILE*)> file(std::fopen(path.c_str(), "rbe"), &std::fclose);
  if (!file) return systemFailure(path, errno);
  struct stat status {};
  if (fstat(fileno(file.get()), &status) != 0) return systemFailure(path, errno);
  if (S_ISDIR(status.st_mode)) return systemFailure(path, EISDIR);

  Data data;
  if (status.st_size > 0) data.reserve(static_cast<std::size_t>(status.st_size));
  constexpr std::size_t chunk = 1 << 20;
  for (;;) {
    const std::size_t end = data.size();
    data.resize(end + chunk);
    const std::size_t count = std::fread(data.data() + end, 1, chunk, file.get());
    data.resize(end + count);
    if (data.size() > limit) return systemFailure(path, EFBIG);
    if (count < chunk) break;
  }
  if (std::ferror(file.get())) return systemFailure(path, EIO);
  return data;
}

}  // namespace tavrel
