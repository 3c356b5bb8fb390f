#include "Platform/Media/WriteLog.h"

#include <algorithm>
#include <fstream>
#include <mutex>

namespace tavrel::test {
namespace {

std::mutex mutex;
std::vector<WriteLog*> logs;

}  // namespace

WriteLog::WriteLog(std::filesystem::path path) : path_(std::move(path)) {
  const std::lock_guard lock(mutex);
  logs.push_back(this);
}

WriteLog::~WriteLog() {
  const std::lock_guard lock(mutex);
  std::erase(logs, this);
}

void WriteLog::note(int descriptor, const void* bytes, std::ptrdiff_t size, std::int64_t offset) {
  if (size <= 0 || offset < 0) return;
  const std::lock_guard lock(mutex);
  if (logs.empty()) return;
  std::error_code ignored;
  const auto path = std::filesystem::read_symlink("/proc/self/fd/" + std::to_string(descriptor), ignored);
  for (WriteLog* const log : logs) {
    const bool isHidden = path == log->path_.parent_path() / ("." + log->path_.filename().string() + ".part");
    if (path != log->path_ && !isHidden) continue;
    const auto* const first = static_cast<const std::uint8_t*>(bytes);
    log->writes_.push_back({offset, {first, first + size}, path == log->path_, log->progress});
  }
}

void WriteLog::rebuild(const std::filesystem::path& copy, std::size_t count, std::size_t bytes) const {
  std::ofstream file(copy, std::ios::binary | std::ios::trunc);
  for (std::size_t i = 0; i <= count && i < writes_.size(); ++i) {
    const std::size_t size = i < count ? writes_[i].bytes.size() : std::min(bytes, writes_[i].bytes.size());
    if (size == 0) continue;
    file.seekp(writes_[i].offset);
    file.write(reinterpret_cast<const char*>(writes_[i].bytes.data()), static_cast<std::streamsize>(size));
  }
}

}  // namespace tavrel::test
