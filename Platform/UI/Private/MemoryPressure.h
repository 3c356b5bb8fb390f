#pragma once

#include <chrono>
#include <filesystem>
#include <string_view>

namespace tavrel {

/// The kernel's measure of how long tasks wait for memory (pressure stall information). One thread.
///
/// Where the process may set a trigger on the file, the kernel wakes it; where it may only read, the average over ten
/// seconds is looked at every few seconds; where there is no file, memory is never short.
class MemoryPressure {
 public:
  explicit MemoryPressure(const std::filesystem::path& file = "/proc/pressure/memory");
  MemoryPressure(const MemoryPressure&) = delete;
  MemoryPressure& operator=(const MemoryPressure&) = delete;
  ~MemoryPressure();

  /// To be polled for POLLPRI; -1 without a trigger.
  int triggerDescriptor() const { return hasTrigger_ ? descriptor_ : -1; }
  /// How long to wait before asking `isShort`, in milliseconds; -1 for ever.
  int pollingInterval() const;
  /// Whether a warning is due now, `events` being what poll said about the trigger. At most one every ten seconds.
  bool isShort(short events);

  /// The percentage in "some avg10=PERCENT …"; 0 when the text is another one.
  static double someAverage10(std::string_view text);

 private:
  bool isAboveThreshold() const;

  int descriptor_ = -1;
  bool hasTrigger_ = false;
  std::chrono::steady_clock::time_point quietUntil_;
};

}  // namespace tavrel
