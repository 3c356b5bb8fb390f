#include "Platform/Foundation/ConsoleWriter.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <ctime>
#include <thread>

namespace tavrel {
namespace {

using namespace std::chrono_literals;
using Clock = std::chrono::steady_clock;

constexpr auto kPatience = 1s;

/// A descriptor that can be written to without blocking. Whether descriptors block is a matter of what they share, with
/// other processes too, and so is not ours to change: pipes and terminals are opened once more instead. That is let go
/// of at once, since it would keep a reader from seeing the end.
class Target {
 public:
  explicit Target(int fileDescriptor) : fileDescriptor_(fileDescriptor) {
    struct stat status {};
    if (fstat(fileDescriptor, &status) != 0) return;
    isSocket_ = S_ISSOCK(status.st_mode);
    isPipe_ = S_ISFIFO(status.st_mode);
    const bool mayBlock = isPipe_ || (S_ISCHR(status.st_mode) && isatty(fileDescriptor) != 0);
    if (!mayBlock || (fcntl(fileDescriptor, F_GETFL) & O_NONBLOCK) != 0) return;
    const std::string path = fmt::format("/proc/self/fd/{}", fileDescriptor);
    opened_ = open(path.c_str(), O_WRONLY | O_NONBLOCK | O_NOCTTY | O_CLOEXEC);
    mayBlock_ = opened_ < 0 && errno != ENXIO;
    isBroken_ = opened_ < 0 && errno == ENXIO;  // a pipe without a reader
  }
  Target(const Target&) = delete;
  Target& operator=(const Target&) = delete;
  ~Target() {
    if (opened_ >= 0) close(opened_);
  }

  bool isPipe() const { return isPipe_; }

  ssize_t write(std::string_view text) const {
    if (isBroken_) return errno = EPIPE, -1;
    if (isSocket_) return send(fileDescriptor_, text.data(), text.size(), MSG_DONTWAIT | MSG_NOSIGNAL);
    if (opened_ >= 0) return ::write(opened_, text.data(), text.size());
    if (!mayBlock_) return ::write(fileDescriptor_, text.data(), text.size());
    // It could not be opened, another user's for instance: by little at a time, as it is seen to have room.
    constexpr std::size_t kLittle = 512;
    if (!hasRoom(0ms)) return errno = EAGAIN, -1;
    return ::write(fileDescriptor_, text.data(), std::min(text.size(), kLittle));
  }

  bool hasRoom(std::chrono::milliseconds wait) const {
    pollfd waiting = {opened_ >= 0 ? opened_ : fileDescriptor_, POLLOUT, 0};
    return poll(&waiting, 1, static_cast<int>(wait.count())) > 0;
  }

 private:
  const int fileDescriptor_;
  int opened_ = -1;
  bool isSocket_ = false;
  bool isPipe_ = false;
  bool isBroken_ = false;
  bool mayBlock_ = false;
};

/// Takes back the SIGPIPE that the calling thread's own write brings.
class WithoutPipeSignal {
 public:
  explicit WithoutPipeSignal(bool isNeeded) : isNeeded_(isNeeded) {
    if (!isNeeded_) return;
    sigset_t pending;
    sigpending(&pending);
    wasPending_ = sigismember(&pending, SIGPIPE) == 1;
    sigemptyset(&pipeSignal_);
    sigaddset(&pipeSignal_, SIGPIPE);
    pthread_sigmask(SIG_BLOCK, &pipeSignal_, &before_);
  }
  WithoutPipeSignal(const WithoutPipeSignal&) = delete;
  WithoutPipeSignal& operator=(const WithoutPipeSignal&) = delete;
  ~WithoutPipeSignal() {
    if (!isNeeded_) return;
    constexpr timespec kAtOnce = {};
    while (!wasPending_ && sigtimedwait(&pipeSignal_, nullptr, &kAtOnce) < 0 && errno == EINTR) continue;
    pthread_sigmask(SIG_SETMASK, &before_, nullptr);
  }

 private:
  const bool isNeeded_;
  bool wasPending_ = false;
  sigset_t pipeSignal_{};
  sigset_t before_{};
};

}  // namespace

std::size_t ConsoleWriter::writeUntil(Deadline deadline, std::string_view text) const {
  const Target target(fileDescriptor_);
  const WithoutPipeSignal guard(target.isPipe());
  std::size_t written = 0;
  while (written < text.size()) {
    const ssize_t count = target.write(text.substr(written));
    if (count > 0) written += static_cast<std::size_t>(count);
    if (count > 0 || (count < 0 && errno == EINTR)) continue;
    if (count < 0 && errno != EAGAIN) break;
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - Clock::now());
    if (left <= 0ms) break;
    // A terminal may say that it has room and take nothing.
    if (target.hasRoom(left)) std::this_thread::sleep_for(1ms);
  }
  return written;
}

void ConsoleWriter::write(std::string_view text) {
  std::string whole = tornLine_;
  const std::size_t noteStart = whole.size();
  if (lostLines_ > 0) whole += fmt::format("({} lines were lost here: nobody took them)\n", lostLines_);
  const std::size_t noteEnd = whole.size();
  whole += text;

  const std::size_t written = writeUntil(Clock::now() + (isStuck_ ? 0ms : kPatience), whole);
  isStuck_ = written < whole.size();
  if (written > noteStart) lostLines_ = 0;  // what is left of the note is a torn line
  std::size_t lineEnd = written;
  if (written == 0)
    lineEnd = noteStart;
  else if (whole[written - 1] != '\n')
    lineEnd = whole.find('\n', written) + 1;
  tornLine_ = whole.substr(written, lineEnd - written);
  lostLines_ += static_cast<std::size_t>(
      std::count(whole.begin() + static_cast<std::ptrdiff_t>(std::max(lineEnd, noteEnd)), whole.end(), '\n'));
}

}  // namespace tavrel
