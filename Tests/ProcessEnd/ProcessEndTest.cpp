#include <gtest/gtest.h>
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdlib>
#include <thread>
#include <vector>

#include "Support/CaptureTestSupport.h"
#include "WaysToLeave.h"

namespace tavrel::test {
namespace {

using namespace std::chrono_literals;

constexpr auto kLimit = 2s;

struct Ending {
  int status = -1;
  LeavingClock::duration time{};
};

/// Goes `way` in a process of its own. This one never uses the library, so that a fork will do.
Ending endingOf(const WayToLeave& way) {
  int leavingPipe[2];
  EXPECT_EQ(pipe(leavingPipe), 0);
  const pid_t child = fork();
  if (child == 0) leaveBy(way, leavingPipe[1]);
  Ending ending;
  const auto patience = LeavingClock::now() + 60s;
  while (waitpid(child, &ending.status, WNOHANG) == 0) {
    std::this_thread::sleep_for(1ms);
    if (LeavingClock::now() > patience) kill(child, SIGKILL);
  }
  const auto end = LeavingClock::now();
  close(leavingPipe[1]);
  LeavingClock::time_point start;
  if (read(leavingPipe[0], &start, sizeof start) == sizeof start) ending.time = end - start;
  close(leavingPipe[0]);
  return ending;
}

void goAllWays() {
  for (const WayToLeave& way : waysToLeave()) {
    SCOPED_TRACE(way.name);
    const Ending ending = endingOf(way);
    EXPECT_TRUE(WIFEXITED(ending.status)) << "signal " << WTERMSIG(ending.status);
    EXPECT_EQ(WEXITSTATUS(ending.status), kLeavingStatus);
    EXPECT_LT(ending.time, kLimit * patienceFactor());
  }
}

class ProcessEnd : public ::testing::Test {
 protected:
  ProcessEnd() { setenv("TAVREL_CAPTURE", "virtual", 1); }  // NOLINT(concurrency-mt-unsafe): no other thread yet
};

TEST_F(ProcessEnd, ComesByItselfWhoeverAsksForIt) { goAllWays(); }

TEST_F(ProcessEnd, ComesByItselfOnABusyMachine) {
  std::vector<pid_t> busy;
  for (unsigned i = 0; i < std::thread::hardware_concurrency(); ++i) {
    const pid_t child = fork();
    if (child == 0) {
      for (std::atomic<unsigned> spin = 0;;) ++spin;
    }
    busy.push_back(child);
  }
  goAllWays();
  for (const pid_t child : busy) {
    kill(child, SIGKILL);
    waitpid(child, nullptr, 0);
  }
}

}  // namespace
}  // namespace tavrel::test
