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
  /// The write position: the end of the file after the last write, as far as this process knows.
  std::uint64_t offset() const { return offset_; }
  /// Asks for it: other processes of the application may append to the same file.
  void updateOffset();
  bool isGone() { return watch_.isFileGone(); }
  /// What reached the file, and the system's reason (errno) when that is not all.
  struct Appended {
    std::size_t lines = 0;
    int reason = 0;
  };
  /// Appends `text`, which consists of lines that end at `lineEnds`. When only a part can be written, the line it ends
  /// in is taken back, so that the file holds whole lines.
  Appended append(std::string_view text, std::span<const std::size_t> lineEnds);
  void synchronise() const;

 private:
  LogFile(int fileDescriptor, const std::filesystem::path& path);
  void takeBack(std::size_t written, std::size_t whole);

  const int fileDescriptor_;
  const std::filesystem::path path_;
  std::uint64_t offset_ = 0;
  FileWatch watch_;
};

}  // namespace tavrel
