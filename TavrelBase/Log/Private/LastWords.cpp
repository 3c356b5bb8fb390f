#include "TavrelBase/Log/Private/LastWords.h"

#include <sys/mman.h>
#include <sys/syscall.h>
#include <sys/uio.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <atomic>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <cstdlib>
#include <cstring>
#include <ctime>
#include <mutex>
#include <utility>

#include "Platform/Foundation/ProcessEnd.h"
#include "TavrelBase/Log/Private/LogBacklog.h"
#include "TavrelBase/Log/Private/LogLineFrame.h"

namespace tavrel {
namespace {

constexpr std::array kSignals = {SIGSEGV, SIGBUS, SIGFPE, SIGILL, SIGABRT, SIGSYS, SIGTERM};
constexpr int kMostFiles = 16;

std::atomic<const LogBacklog*> watched = nullptr;
std::array<std::atomic<int>, kMostFiles> files;  // descriptors plus one; 0 is none
std::atomic<bool> isDying = false;

std::mutex installation;
bool handlesSignals = true;
bool isHearing = false;
bool isInstalled = false;
std::array<struct sigaction, kSignals.size()> before;

void finishWriting() {
  constexpr int kLongest = 1000;
  constexpr int kLongestStandstill = 200;  // the dying thread may itself be the one that writes
  const LogBacklog* const backlog = watched;
  if (!backlog) return;
  std::size_t left = backlog->unfinished();
  for (int waited = 0, standstill = 0; left > 0 && waited < kLongest && standstill < kLongestStandstill; ++waited) {
    constexpr timespec kMillisecond = {0, 1000000};
    nanosleep(&kMillisecond, nullptr);
    const std::size_t now = backlog->unfinished();
    standstill = now < left ? 0 : standstill + 1;
    left = now;
  }
}

void say(std::string_view what, std::string_view text, std::string_view function) {
  if (isDying.exchange(true)) return;
  finishWriting();
  const LogLineFrame frame(TavrelDDLogFlagError, function);
  const auto piece = [](std::string_view bytes) { return iovec{const_cast<char*>(bytes.data()), bytes.size()}; };
  const iovec line[] = {piece(frame.head()), piece(what), piece(text), piece(frame.tail())};
  for (const auto& file : files) {
    const int fileDescriptor = file;
    if (fileDescriptor > 0) [[maybe_unused]]
      const ssize_t written = writev(fileDescriptor - 1, line, std::size(line));
  }
}

void handle(int signal, siginfo_t* info, void*) {
  const int error = errno;
  const char* const name = sigabbrev_np(signal);
  say("*** The process received SIG", name ? name : "", "LastWords");
  const auto index = static_cast<std::size_t>(std::ranges::find(kSignals, signal) - kSignals.begin());
  sigaction(signal, &before[index], nullptr);
  // What is wrong with the code happens once more on return; what was sent is sent on, and arrives then.
  if (info->si_code <= 0 && syscall(SYS_rt_tgsigqueueinfo, getpid(), gettid(), signal, info) != 0) raise(signal);
  errno = error;
}

void install() {
  if (std::exchange(isInstalled, true)) return;
  for (std::size_t i = 0; i < kSignals.size(); ++i) {
    sigaction(kSignals[i], nullptr, &before[i]);
    if (before[i].sa_handler == SIG_IGN) continue;
    struct sigaction action {};
    action.sa_sigaction = handle;
    action.sa_flags = SA_SIGINFO | SA_ONSTACK;
    sigemptyset(&action.sa_mask);
    sigaction(kSignals[i], &action, nullptr);
  }
}

void uninstall() {
  if (!std::exchange(isInstalled, false)) return;
  for (std::size_t i = 0; i < kSignals.size(); ++i) {
    struct sigaction present {};
    sigaction(kSignals[i], nullptr, &present);
    // A handler that was set on top of it stays, and may call it.
    if (present.sa_sigaction == handle) sigaction(kSignals[i], &before[i], nullptr);
  }
}

struct SignalStack {
  std::size_t size = 0;
  void* memory = nullptr;

  SignalStack() {
    stack_t present{};
    if (sigaltstack(nullptr, &present) != 0 || (present.ss_flags & SS_DISABLE) == 0) return;
    size = static_cast<std::size_t>(std::max(sysconf(_SC_MINSIGSTKSZ), 0L)) + std::size_t{32} * 1024;
    memory = mmap(nullptr, size, PROT_READ | PROT_WRITE, MAP_PRIVATE | MAP_ANONYMOUS | MAP_STACK, -1, 0);
    const stack_t stack = {.ss_sp = memory, .ss_flags = 0, .ss_size = size};
    if (memory == MAP_FAILED) memory = nullptr;
    if (memory) sigaltstack(&stack, nullptr);
  }
  SignalStack(const SignalStack&) = delete;
  SignalStack& operator=(const SignalStack&) = delete;
  ~SignalStack() {
    stack_t present{};
    if (!memory || sigaltstack(nullptr, &present) != 0) return;
    const stack_t none = {.ss_sp = nullptr, .ss_flags = SS_DISABLE, .ss_size = 0};
    if (present.ss_sp == memory && sigaltstack(&none, nullptr) != 0) return;
    munmap(memory, size);
  }
};

}  // namespace

void LastWords::watch(const LogBacklog& backlog) {
  const std::lock_guard lock(installation);
  if (!watched.exchange(&backlog)) {
    ProcessEnd::atFatalAssertion([](std::string_view text) { say("*** Assertion failure: ", text, "fatalAssertion"); });
    at_quick_exit(finishWriting);
  }
}

void LastWords::hearSignals() {
  const std::lock_guard lock(installation);
  isHearing = true;
  if (handlesSignals) install();
}

void LastWords::setHandlesSignals(bool handles) {
  const std::lock_guard lock(installation);
  handlesSignals = handles;
  if (!handles) uninstall();
  if (handles && isHearing) install();
}

void LastWords::addFile(int fileDescriptor) {
  for (auto& file : files) {
    int none = 0;
    if (file.compare_exchange_strong(none, fileDescriptor + 1)) return;
  }
}

void LastWords::removeFile(int fileDescriptor) {
  for (auto& file : files) {
    int present = fileDescriptor + 1;
    if (file.compare_exchange_strong(present, 0)) return;
  }
}

void LastWords::coverThisThread() { static thread_local const SignalStack stack; }

}  // namespace tavrel
