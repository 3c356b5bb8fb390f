#include <fmt/format.h>
#include <sys/inotify.h>
#include <sys/stat.h>
#include <unistd.h>

#include <utility>

#include "TavrelBase/Log/Private/FileWatch.h"

namespace tavrel {
namespace {

using namespace std::chrono_literals;

/// How long an answer holds, and how long one without a look at the path does. Clocks may be set back.
constexpr auto kShortest = 10us;
constexpr auto kLongest = 1s;

bool isRecent(FileWatch::TimePoint then, FileWatch::TimePoint now, FileWatch::TimePoint::duration limit) {
  return now >= then && now - then < limit;
}

}  // namespace

FileWatch::FileWatch(int openFile, std::filesystem::path path)
    : openFile_(openFile), path_(std::move(path)), inotify_(inotify_init1(IN_NONBLOCK | IN_CLOEXEC)) {
  if (inotify_ < 0) return;
  // By descriptor, since the path may lead elsewhere by now. While the file is open its removal shows as a change of
  // its link count, which is an attribute.
  const std::string link = fmt::format("/proc/self/fd/{}", openFile_);
  if (inotify_add_watch(inotify_, link.c_str(), IN_ATTRIB | IN_MOVE_SELF | IN_DELETE_SELF) < 0) {
    close(inotify_);
    inotify_ = -1;
    return;
  }
  std::error_code error;
  for (auto folder = std::filesystem::absolute(path_, error).parent_path(); folder.has_relative_path();
       folder = folder.parent_path()) {
    inotify_add_watch(inotify_, folder.c_str(), IN_MOVE_SELF | IN_DELETE_SELF | IN_ONLYDIR);
  }
}

FileWatch::~FileWatch() {
  if (inotify_ >= 0) close(inotify_);
}

bool FileWatch::hasEvents() const {
  if (inotify_ < 0) return true;
  bool any = false;
  alignas(inotify_event) char events[4096];
  while (read(inotify_, events, sizeof events) > 0) any = true;
  return any;
}

bool FileWatch::mayBeGone(TimePoint now) {
  if (isRecent(looked_, now, kShortest)) return false;
  looked_ = now;
  if (!hasEvents() && isRecent(compared_, now, kLongest)) return false;
  compared_ = now;
  return true;
}

bool FileWatch::isFileGone(TimePoint now) {
  if (!mayBeGone(now)) return false;
  struct stat open {};
  struct stat named {};
  if (fstat(openFile_, &open) != 0) return true;
  return stat(path_.c_str(), &named) != 0 || named.st_dev != open.st_dev || named.st_ino != open.st_ino;
}

}  // namespace tavrel
