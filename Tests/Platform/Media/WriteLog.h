#pragma once

#include <atomic>
#include <cstdint>
#include <filesystem>
#include <string>
#include <vector>

namespace tavrel::test {

/// Everything that this process writes to a file, write by write, so that the file can be had as it was at any moment:
/// as a death in that moment leaves it.
class WriteLog {
 public:
  struct Write {
    std::int64_t offset = 0;
    std::vector<std::uint8_t> bytes;
    bool hasName = false;  ///< the file has its own name already
    double progress = 0;
  };

  explicit WriteLog(std::filesystem::path path);
  WriteLog(const WriteLog&) = delete;
  WriteLog& operator=(const WriteLog&) = delete;
  ~WriteLog();

  /// What the next writes are noted with.
  std::atomic<double> progress = 0;
  /// Those so far; to be read when no more come.
  const std::vector<Write>& writes() const { return writes_; }
  /// The file after the first `count` writes and `bytes` bytes of the next one.
  void rebuild(const std::filesystem::path& copy, std::size_t count, std::size_t bytes) const;

  /// Of this process, by its descriptors' paths.
  static void note(int descriptor, const void* bytes, std::ptrdiff_t size, std::int64_t offset);

 private:
  const std::filesystem::path path_;
  std::vector<Write> writes_;
};

}  // namespace tavrel::test
