#include "Platform/UI/Private/MemoryPressure.h"

#include <fcntl.h>
#include <poll.h>
#include <unistd.h>

#include <array>
#include <charconv>
#include <cstring>

namespace tavrel {
namespace {

// Some task waited for memory for 200 ms within two seconds; windows of whole two seconds need no privilege.
constexpr const char* kTrigger = "some 200000 2000000";
constexpr double kThreshold = 10;  // per cent
constexpr int kPollingMilliseconds = 2000;
constexpr auto kQuietTime = std::chrono::seconds(10);

}  // namespace

MemoryPressure::MemoryPressure(const std::filesystem::path& file)
    : descriptor_(open(file.c_str(), O_RDWR | O_NONBLOCK | O_CLOEXEC)) {
  // A regular file takes any text, but never wakes anybody.
  const bool isKernels = file.string().starts_with("/proc/") || file.string().starts_with("/sys/");
  const auto length = static_cast<ssize_t>(std::strlen(kTrigger) + 1);
  if (descriptor_ >= 0 && isKernels) {
    hasTrigger_ = write(descriptor_, kTrigger, static_cast<std::size_t>(length)) == length;
  }
  if (hasTrigger_) return;
  if (descriptor_ >= 0) close(descriptor_);
  descriptor_ = open(file.c_str(), O_RDONLY | O_CLOEXEC);
}

MemoryPressure::~MemoryPressure() {
  if (descriptor_ >= 0) close(descriptor_);
}

int MemoryPressure::pollingInterval() const { return descriptor_ >= 0 && !hasTrigger_ ? kPollingMilliseconds : -1; }

bool MemoryPressure::isShort(short events) {
  if (hasTrigger_ && (events & POLLERR) != 0) {
    // The kernel withdrew the trigger; such a descriptor would be ready for ever.
    close(descriptor_);
    descriptor_ = -1;
    hasTrigger_ = false;
    return false;
  }
  const bool isPressed = hasTrigger_ ? (events & POLLPRI) != 0 : isAboveThreshold();
  const auto now = std::chrono::steady_clock::now();
  if (!isPressed || now < quietUntil_) return false;
  quietUntil_ = now + kQuietTime;
  return true;
}

bool MemoryPressure::isAboveThreshold() const {
  std::array<char, 256> text{};
  if (descriptor_ < 0) return false;
  const ssize_t length = pread(descriptor_, text.data(), text.size(), 0);
  return length > 0 && someAverage10({text.data(), static_cast<std::size_t>(length)}) >= kThreshold;
}

double MemoryPressure::someAverage10(std::string_view text) {
  constexpr std::string_view kPrefix = "some avg10=";
  const std::size_t start = text.find(kPrefix);
  if (start == std::string_view::npos) return 0;
  double percentage = 0;
  const char* const number = text.data() + start + kPrefix.size();
  const auto [end, error] = std::from_chars(number, text.data() + text.size(), percentage);
  return error == std::errc() ? percentage : 0;
}

}  // namespace tavrel
