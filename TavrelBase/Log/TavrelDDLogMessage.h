#pragma once

#include <chrono>
#include <cstdint>
#include <string>
#include <string_view>

#include "Platform/Foundation/Export.h"
#include "Platform/Foundation/Geometry.h"

namespace tavrel {

/// The last component of a path without its extension, as a view into `path`: "Camera" for "Capture/Camera.cpp".
TAVREL_API std::string_view TavrelDDExtractFileNameWithoutExtension(std::string_view path);

/// An immutable log record. Owns copies of its texts, in one block of memory; views into them are valid as long as the
/// record. Texts are arbitrary bytes.
class TAVREL_API TavrelDDLogMessage {
 public:
  using Clock = std::chrono::system_clock;

  /// Records the calling thread, its queue and the time. `level` is the mask that guarded the call, `flag` the
  /// message's own bit; `options` is for applications.
  TavrelDDLogMessage(std::string_view message, unsigned level, unsigned flag, Index context, std::string_view file,
                     std::string_view function, unsigned line, std::string_view tag, unsigned options = 0);
  /// With a given time.
  TavrelDDLogMessage(std::string_view message, unsigned level, unsigned flag, Index context, std::string_view file,
                     std::string_view function, unsigned line, std::string_view tag, unsigned options,
                     Clock::time_point timestamp);

  std::string_view message() const { return {texts_.data(), messageEnd_}; }
  /// The source path as given.
  std::string_view file() const { return piece(messageEnd_, fileEnd_); }
  /// The source file's name.
  std::string_view lastPathComponent() const { return piece(lastComponentStart_, fileEnd_); }
  /// The source file's name without extension.
  std::string_view fileName() const { return TavrelDDExtractFileNameWithoutExtension(file()); }
  std::string_view function() const { return piece(fileEnd_, functionEnd_); }
  std::string_view tag() const { return piece(functionEnd_, tagEnd_); }
  /// The kernel's thread ID, in decimal.
  std::string_view threadID() const { return piece(tagEnd_, threadIDEnd_); }
  /// The thread's name; may lag behind a change by up to a second.
  std::string_view threadName() const { return piece(threadIDEnd_, threadNameEnd_); }
  /// Label of the dispatch queue of the call; empty outside any queue.
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
