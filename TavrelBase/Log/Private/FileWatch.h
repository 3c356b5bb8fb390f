#pragma once

#include <filesystem>

namespace tavrel {

/// Tells whether an open file is still the one under its path, by inotify. A question costs one system call as long as
/// nothing happens to the file; without inotify (its instances are limited for each user) it looks at the path each
/// time.
class FileWatch {
 public:
  FileWatch(int openFile, std::filesystem::path path);
  FileWatch(const FileWatch&) = delete;
  FileWatch& operator=(const FileWatch&) = delete;
  ~FileWatch();

  /// True once the file was deleted, moved away or replaced.
  bool isFileGone();

 private:
  bool hasEvents() const;

  const int openFile_;
  const std::filesystem::path path_;
  int inotify_ = -1;
};

}  // namespace tavrel
