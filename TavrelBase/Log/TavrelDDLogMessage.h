#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include "Platform/Foundation/Export.h"
#include "Platform/Foundation/Geometry.h"

namespace tavrel {

/// A path's last component without its extension: "Camera" for "Capture/Camera.cpp". A view into `path`.
TAVREL_API std::string_view TavrelDDExtractFileNameWithoutExtension(std::string_view path);

/// One log call, immutable once built. It owns copies of all its texts (in one block of memory), so it may be kept and
/// copied freely; the views it hands out live as long as the record. Texts are bytes: nothing is interpreted or
/// altered.
class TAVREL_API TavrelDDLogMessage {
 public:
  using Clock = std::chrono::system_clock;

  /// Built on the thread that logs: thread, queue and time are those of the call.
  /// `level` is the caller's mask, `flag` the message's single bit; `options` is for applications, the library sets 0.
  TavrelDDLogMessage(std::string_view message, unsigned level, unsigned flag, Index context, std::string_view file,
                     std::string_view function, unsigned line, std::string_view tag, unsigned options = 0);
  /// With a given time instead of the present.
  TavrelDDLogMessage(std::string_view message, unsigned level, unsigned flag, Index context, std::string_view file,
                     std::string_view function, unsigned line, std::string_view tag, unsigned options,
                     Clock::time_point timestamp);

  std::string_view message() const { return {texts_.data(), messageEnd_}; }
  /// The source path as it was given.
  std::string_view file() const { return piece(messageEnd_, fileEnd_); }
  /// The source file's last path component.
  std::string_view lastPathComponent() const { return piece(lastComponentStart_, fileEnd_); }
  /// The source file's name without directory and extension.
  std::string_view fileName() const { return TavrelDDExtractFileNameWithoutExtension(file()); }
  std::string_view function() const { return piece(fileEnd_, functionEnd_); }
  std::string_view tag() const { return piece(functionEnd_, tagEnd_); }
  /// The kernel's number of the thread, in decimal.
  std::string_view threadID() const { return piece(tagEnd_, threadIDEnd_); }
  /// The thread's name; a change of name may take up to a second to show.
  std::string_view threadName() const { return piece(threadIDEnd_, threadNameEnd_); }
  /// Label of the dispatch queue whose block made the call; empty outside any queue.
  std::string_view queueLabel() const { return piece(threadNameEnd_, texts_.size()); }
  unsigned level() const { return level_; }
  unsigned flag() const { return flag_; }
  Index context() const { return context_; }
  unsigned line() const { return line_; }
  unsigned options() const { return options_; }
  Clock::time_point timestamp() const { return timestamp_; }

 private:
  std::string_view piece(std::size_t start, std::size_t end) const { return {texts_.data() + start, end - start}; }

  std::string texts_;  // message, file, function, tag, thread number, thread name and queue label, one after the other
  std::size_t messageEnd_ = 0;
  std::size_t fileEnd_ = 0;
  std::size_t lastComponentStart_ = 0;
  std::size_t functionEnd_ = 0;
  std::size_t tagEnd_ = 0;
  std::size_t threadIDEnd_ = 0;
  std::size_t threadNameEnd_ = 0;
  Clock::time_point timestamp_;
  Index context_ = 0;
  unsigned level_ = 0;
  unsigned flag_ = 0;
  unsigned line_ = 0;
  unsigned options_ = 0;
};

}  // namespace tavrel
