#pragma once

#include <cstdint>
#include <filesystem>
#include <memory>
#include <span>
#include <string_view>

#include "Platform/Foundation/Error.h"
#include "TavrelBase/Log/Private/FileWatch.h"

namespace tavrel {

/// A log file open for appending. One thread at a time.
class LogFile {
 public:
  /// Opens an existing file; fails with the system's reason ("posix", errno).
  static Expected<std::unique_ptr<LogFile>> open(const std::filesystem::path& path);

  LogFile(const LogFile&) = delete;
  LogFile& operator=(const LogFile&) = delete;
  ~LogFile();

  int fileDescriptor() const { return fileDescriptor_; }
  /// The end of the file as last seen, and what was written since; other processes of the application may append to it
  /// too.
  std::uint64_t offset() const { return offset_; }
  /// Whether it was already deleted when last seen.
  bool isDeleted() const { return isDeleted_; }
  /// See `FileWatch`.
  bool isGone(FileWatch::TimePoint now) { return watch_.isFileGone(now); }
  /// What reached the file, and the system's reason (errno) when that is not all.
  struct Appended {
    std::size_t lines = 0;
    int reason = 0;
  };
  /// Appends `text`, which consists of lines that end at `lineEnds`. When only a part can be written, the line it ends
  /// in is taken back, so that the file holds whole lines. `looks` afterwards, and whenever it fails.
  Appended append(std::string_view text, std::span<const std::size_t> lineEnds, bool looks);
  void synchronise() const;

 private:
  LogFile(int fileDescriptor, const std::filesystem::path& path);
  void look();
  void takeBack(std::size_t bytes);

  const int fileDescriptor_;
  const std::filesystem::path path_;
  std::uint64_t offset_ = 0;
  bool isDeleted_ = false;
  FileWatch watch_;
};

}  // namespace tavrel
