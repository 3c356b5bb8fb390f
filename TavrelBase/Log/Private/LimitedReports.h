#pragma once

#include <atomic>
#include <string_view>

#include "Platform/Foundation/ConsoleLog.h"

namespace tavrel {

/// Writes the first ten failures of one kind to the console and says after the tenth that no more will follow. Any
/// thread.
class LimitedReports {
 public:
  /// `closing` must outlive the object.
  explicit LimitedReports(std::string_view closing) : closing_(closing) {}

  void write(std::string_view report) {
    const unsigned number = count_.fetch_add(1, std::memory_order_relaxed) + 1;
    if (number > kMost) {
      count_.store(kMost, std::memory_order_relaxed);  // it must not wrap around
      return;
    }
    ConsoleLog::write(report);
    if (number == kMost) ConsoleLog::write(closing_);
  }

 private:
  static constexpr unsigned kMost = 10;

  std::string_view closing_;
  std::atomic<unsigned> count_ = 0;
};

}  // namespace tavrel
