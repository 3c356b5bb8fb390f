#pragma once

#include <chrono>
#include <string>
#include <string_view>

namespace tavrel {

/// Writes lines to a descriptor: a file, terminal, pipe or socket. It never ends the process, and blocks it briefly at
/// most: it waits a second for a full pipe or a stopped terminal, once, and does not wait again until output is
/// accepted; a broken pipe raises no SIGPIPE. Lines that cannot be written are lost as a whole, and a later line tells
/// how many. For the library only; not installed. One thread at a time.
class ConsoleWriter {
 public:
  /// Does not own the descriptor, which may be redirected at any time.
  explicit ConsoleWriter(int fileDescriptor) : fileDescriptor_(fileDescriptor) {}

  int fileDescriptor() const { return fileDescriptor_; }
  /// `text` ends with a newline.
  void write(std::string_view text);

 private:
  using Deadline = std::chrono::steady_clock::time_point;

  /// Number of bytes written before the deadline.
  std::size_t writeUntil(Deadline deadline, std::string_view text) const;

  const int fileDescriptor_;
  bool isStuck_ = false;
  std::string tornLine_;  // the rest of a partly written line
  std::size_t lostLines_ = 0;
};

}  // namespace tavrel
