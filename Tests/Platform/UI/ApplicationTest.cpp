#include "Platform/UI/Application.h"

#include <gtest/gtest.h>

#include <csignal>
#include <fstream>
#include <vector>

#include "Platform/Foundation/Notifications.h"
#include "Platform/UI/Private/MemoryPressure.h"
#include "TavrelCaptureBase.h"

namespace tavrel {
namespace {

using namespace std::chrono_literals;

class NotificationLog {
 public:
  NotificationLog() {
    for (const char* name : {kApplicationDidBecomeActiveNotification, kApplicationWillResignActiveNotification,
                             kApplicationDidEnterBackgroundNotification, kApplicationWillEnterForegroundNotification,
                             kApplicationDidReceiveMemoryWarningNotification, kApplicationWillTerminateNotification}) {
      tokens_.push_back(NotificationCenter::defaultCenter().addObserver(
          name, [this](std::string_view posted, const void*) { names.emplace_back(posted); }));
    }
  }
  ~NotificationLog() {
    for (const auto token : tokens_) NotificationCenter::defaultCenter().removeObserver(token);
  }
  std::vector<std::string> names;

 private:
  std::vector<NotificationCenter::ObserverToken> tokens_;
};

TEST(Application, tellsEveryStepBetweenItsStates) {
  Application& application = Application::shared();
  EXPECT_EQ(application.state(), ApplicationState::active) << "without a window";
  NotificationLog log;
  application.setState(ApplicationState::background);
  EXPECT_EQ(log.names, (std::vector<std::string>{kApplicationWillResignActiveNotification,
                                                 kApplicationDidEnterBackgroundNotification}));
  log.names.clear();
  application.setState(ApplicationState::background);
  EXPECT_TRUE(log.names.empty());
  application.setState(ApplicationState::active);
  EXPECT_EQ(log.names, (std::vector<std::string>{kApplicationWillEnterForegroundNotification,
                                                 kApplicationDidBecomeActiveNotification}));
  log.names.clear();
  application.setState(ApplicationState::inactive);
  application.setState(ApplicationState::active);
  EXPECT_EQ(log.names, (std::vector<std::string>{kApplicationWillResignActiveNotification,
                                                 kApplicationDidBecomeActiveNotification}));
}

TEST(Application, postsMemoryWarningsOnTheMainThread) {
  bool isMain = false;
  const auto token = NotificationCenter::defaultCenter().addObserver(
      kApplicationDidReceiveMemoryWarningNotification,
      [&](std::string_view, const void*) { isMain = RunLoop::isMainThread(); });
  std::thread([] { Application::shared().receiveMemoryWarning(); }).join();
  EXPECT_TRUE(RunLoop::main().runUntil([&] { return isMain; }, 5s));
  NotificationCenter::defaultCenter().removeObserver(token);
}

/// What a program does that ends on SIGTERM; its exit status says what it saw.
[[noreturn]] void waitForTermination() {
  Application::shared().observeSystem();
  int seen = 0;
  NotificationCenter::defaultCenter().addObserver(kApplicationWillTerminateNotification,
                                                  [&](std::string_view, const void*) { ++seen; });
  DispatchQueue::main()->async([] { std::raise(SIGTERM); });
  RunLoop::main().runFor(20s);
  std::exit(seen == 1 && Application::shared().isTerminating() ? 42 : 1);
}

[[noreturn]] void waitForTerminationTwice() {
  Application::shared().observeSystem();
  std::raise(SIGTERM);
  std::raise(SIGTERM);
  std::exit(1);
}

[[noreturn]] void keepOwnHandler() {
  static volatile std::sig_atomic_t isHandled = 0;
  std::signal(SIGTERM, [](int) { isHandled = 1; });
  Application::shared().observeSystem();
  std::raise(SIGTERM);
  RunLoop::main().runFor(50ms);
  std::exit(isHandled && !Application::shared().isTerminating() ? 42 : 1);
}

TEST(ApplicationDeathTest, endsTheRunLoopOnSigtermOnceAndDiesOfASecondOne) {
  EXPECT_EXIT(waitForTermination(), ::testing::ExitedWithCode(42), "");
  EXPECT_EXIT(waitForTerminationTwice(), ::testing::KilledBySignal(SIGTERM), "");
  EXPECT_EXIT(keepOwnHandler(), ::testing::ExitedWithCode(42), "");
}

TEST(MemoryPressure, warnsAboveTenPerCentAtMostEveryTenSeconds) {
  const std::filesystem::path file = testing::TempDir() + "/pressure";
  const auto write = [&](const char* text) { std::ofstream(file) << text; };
  write("some avg10=9.99 avg60=50.00 avg300=0.00 total=1\nfull avg10=70.00 avg60=0.00 avg300=0.00 total=0\n");
  MemoryPressure pressure(file);
  EXPECT_GT(pressure.pollingInterval(), 0);
  EXPECT_EQ(pressure.triggerDescriptor(), -1);
  EXPECT_FALSE(pressure.isShort(0));
  write("some avg10=10.50 avg60=50.00 avg300=0.00 total=1\n");
  EXPECT_TRUE(pressure.isShort(0));
  EXPECT_FALSE(pressure.isShort(0)) << "just said";
  std::filesystem::remove(file);

  EXPECT_EQ(MemoryPressure::someAverage10("nonsense"), 0);
  EXPECT_EQ(MemoryPressure::someAverage10("some avg10=x"), 0);
  MemoryPressure absent("/nonexistent/pressure");
  EXPECT_EQ(absent.pollingInterval(), -1);
  EXPECT_FALSE(absent.isShort(0));
}

}  // namespace
}  // namespace tavrel
