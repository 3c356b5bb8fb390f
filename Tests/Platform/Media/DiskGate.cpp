#include "Platform/Media/DiskGate.h"

#include <dlfcn.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "Platform/Media/WriteLog.h"

namespace tavrel::test {
namespace {

std::mutex mutex;
std::condition_variable changed;
bool isClosed = false;
int waiting = 0;
std::atomic<std::chrono::milliseconds> stall{};

void passGate(int descriptor) {
  struct stat about {};
  if (::fstat(descriptor, &about) != 0 || !S_ISREG(about.st_mode)) return;
  std::this_thread::sleep_for(stall.load());
  std::unique_lock lock(mutex);
  if (!isClosed) return;
  ++waiting;
  changed.notify_all();
  changed.wait(lock, [] { return !isClosed; });
  --waiting;
}

}  // namespace

DiskGate::DiskGate() {
  const std::lock_guard lock(mutex);
  isClosed = true;
}

void DiskGate::open() {
  const std::lock_guard lock(mutex);
  isClosed = false;
  changed.notify_all();
}

bool DiskGate::isStoodBefore() {
  std::unique_lock lock(mutex);
  return changed.wait_for(lock, std::chrono::seconds(20), [] { return waiting > 0; });
}

DiskStall::DiskStall(std::chrono::milliseconds time) { stall = time; }

DiskStall::~DiskStall() { stall = std::chrono::milliseconds(0); }

}  // namespace tavrel::test

// Before the C library's own, for the library under test too.
extern "C" __attribute__((visibility("default"))) ssize_t write(int descriptor, const void* bytes, size_t size) {
  static const auto next = reinterpret_cast<decltype(&write)>(::dlsym(RTLD_NEXT, "write"));
  tavrel::test::passGate(descriptor);
  const off_t offset = ::lseek(descriptor, 0, SEEK_CUR);
  const ssize_t written = next(descriptor, bytes, size);
  tavrel::test::WriteLog::note(descriptor, bytes, written, offset);
  return written;
}

extern "C" __attribute__((visibility("default"))) ssize_t pwrite(int descriptor, const void* bytes, size_t size,
                                                                 off_t offset) {
  static const auto next = reinterpret_cast<decltype(&pwrite)>(::dlsym(RTLD_NEXT, "pwrite"));
  tavrel::test::passGate(descriptor);
  const ssize_t written = next(descriptor, bytes, size, offset);
  tavrel::test::WriteLog::note(descriptor, bytes, written, offset);
  return written;
}
