#include "Platform/UI/Private/SystemWatch.h"

#include <poll.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <unistd.h>

#include <array>
#include <cerrno>
#include <csignal>
#include <cstdint>
#include <thread>
#include <utility>

#include "Platform/Foundation/ProcessEnd.h"
#include "Platform/UI/Private/MemoryPressure.h"

namespace tavrel {
namespace {

/// The eventfd that the signal handler writes to. The only thing it may touch.
int terminationDescriptor = -1;

void writeOne(int descriptor) {
  const std::uint64_t one = 1;
  [[maybe_unused]] const auto written = write(descriptor, &one, sizeof one);
}

void handleTermination(int) {
  const int saved = errno;
  writeOne(terminationDescriptor);
  errno = saved;
}

bool watchTermination() {
  struct sigaction present {};
  if (sigaction(SIGTERM, nullptr, &present) != 0 || present.sa_handler != SIG_DFL) return false;
  struct sigaction wanted {};
  wanted.sa_handler = handleTermination;
  wanted.sa_flags = SA_RESTART | SA_RESETHAND;
  sigemptyset(&wanted.sa_mask);
  return sigaction(SIGTERM, &wanted, nullptr) == 0;
}

class Watcher {
 public:
  explicit Watcher(SystemWatch::Handlers handlers)
      : handlers_(std::move(handlers)), quitDescriptor_(eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    terminationDescriptor = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
    watchTermination();
    thread_ = std::thread([this] {
      pthread_setname_np(pthread_self(), "tavrel.system");
      run();
    });
  }

  void stop() {
    writeOne(quitDescriptor_);
    thread_.join();
  }

 private:
  void run() {
    for (;;) {
      std::array<pollfd, 3> descriptors = {{{quitDescriptor_, POLLIN, 0},
                                            {terminationDescriptor, POLLIN, 0},
                                            {pressure_.triggerDescriptor(), POLLPRI, 0}}};
      const int count = poll(descriptors.data(), descriptors.size(), pressure_.pollingInterval());
      if (count < 0 && errno != EINTR) return;
      if (descriptors[0].revents != 0) return;
      if (count > 0 && descriptors[1].revents != 0) takeTermination();
      if (pressure_.isShort(count > 0 ? descriptors[2].revents : 0)) handlers_.memoryIsShort();
    }
  }

  void takeTermination() {
    std::uint64_t times = 0;
    [[maybe_unused]] const auto bytes = read(terminationDescriptor, &times, sizeof times);
    handlers_.terminationRequested();
  }

  SystemWatch::Handlers handlers_;
  int quitDescriptor_;
  MemoryPressure pressure_;
  std::thread thread_;
};

Watcher* watcher = nullptr;

}  // namespace

void SystemWatch::start(Handlers handlers) {
  if (watcher) return;
  watcher = new Watcher(std::move(handlers));
  ProcessEnd::at(ProcessEnd::Stage::sources, [] { watcher->stop(); });
}

}  // namespace tavrel
