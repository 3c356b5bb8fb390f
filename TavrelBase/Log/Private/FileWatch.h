#pragma once

#include <chrono>
#include <filesystem>

namespace tavrel {

/// Tells whether an open file is still the one under its path, by inotify on the file and all folders above it. A
/// question costs one system call at most as long as nothing happens to them; without inotify (its instances are
/// limited for each user) it looks at the path each time. What inotify does not tell, it sees within a second.
class FileWatch {
 public:
  FileWatch(int openFile, std::filesystem::path path);
  FileWatch(const FileWatch&) = delete;
  FileWatch& operator=(const FileWatch&) = delete;
  ~FileWatch();

  using TimePoint = std::chrono::system_clock::time_point;

  /// True once the file was deleted, moved away or replaced. What happened less than ten microseconds before `now` may
  /// not be seen yet.
  bool isFileGone(TimePoint now);

 private:
  bool mayBeGone(TimePoint now);
  bool hasEvents() const;

  const int openFile_;
  const std::filesystem::path path_;
  int inotify_ = -1;
  TimePoint looked_;    // for events
  TimePoint compared_;  // with what is under the path
};

}  // namespace tavrel
