#pragma once

#include <chrono>
#include <string>
#include <string_view>

namespace tavrel {

/// Lines on their way to a descriptor of any kind: a file, a terminal, a pipe or a socket. Nothing there holds the
/// process up or ends it: a pipe that nobody empties and a terminal that was stopped are waited for a second, once, and
/// then tried without waiting until they take something again; a broken pipe raises no SIGPIPE. What cannot be written
/// is lost, in whole lines, and a line says how many as soon as something can be. Only the library's own floors use
/// it; it is not installed. One thread at a time.
class ConsoleWriter {
 public:
  /// The descriptor stays its owner's; it may become another file's at any time.
  explicit ConsoleWriter(int fileDescriptor) : fileDescriptor_(fileDescriptor) {}

  int fileDescriptor() const { return fileDescriptor_; }
  /// `text` ends with a newline.
  void write(std::string_view text);

 private:
  using Deadline = std::chrono::steady_clock::time_point;

  /// How many of the first bytes were taken before the deadline.
  std::size_t writeUntil(Deadline deadline, std::string_view text) const;

  const int fileDescriptor_;
  bool isStuck_ = false;
  std::string tornLine_;  // what is left of a line that was taken in part
  std::size_t lostLines_ = 0;
};

}  // namespace tavrel
