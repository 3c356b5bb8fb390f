#include "TavrelBase/Log/TavrelDDLog.h"

#include <sched.h>

#include <stdexcept>
#include <thread>

#include "Platform/Dispatch/RunLoop.h"
#include "Platform/UI/Application.h"
#include "Support/LogTestSupport.h"

namespace tavrel {
namespace {

using namespace std::chrono_literals;
using TavrelDDLogTest = test::LogTest;
using test::logText;
using test::RecordingLogger;

/// Destroyed after the dispatcher has ended, since it was there before the first record.
struct AtTheVeryEnd {
  ~AtTheVeryEnd() {
    if (action) action();
  }
  void (*action)() = nullptr;
} atTheVeryEnd;

std::shared_ptr<RecordingLogger> addRecorder(unsigned level = TavrelDDLogLevelAll) {
  auto logger = std::make_shared<RecordingLogger>();
  TavrelDDLog::addLogger(logger, level);
  return logger;
}

TEST_F(TavrelDDLogTest, RecordsReachOnlyLoggersWhoseMaskHoldsTheFlag) {
  const auto errors = addRecorder(1);
  const auto all = addRecorder(15);
  logText(true, TavrelDDLogFlagDebug, "debug");
  logText(true, TavrelDDLogFlagError, "error");
  logText(true, TavrelDDLogFlagVerbose, "verbose");
  TavrelDDLog::flushLog();
  EXPECT_EQ(errors->texts(), std::vector<std::string>{"error"});
  EXPECT_EQ(all->texts(), (std::vector<std::string>{"debug", "error"}));
}

TEST_F(TavrelDDLogTest, TheSameLoggerAndLevelIsOneNodeAndAnotherLevelASecondOne) {
  const auto logger = addRecorder(15);
  TavrelDDLog::addLogger(logger, 15);
  EXPECT_EQ(TavrelDDLog::allLoggers().size(), 1U);
  TavrelDDLog::addLogger(logger, 1);
  EXPECT_EQ(TavrelDDLog::allLoggers().size(), 2U);
  // Both nodes share one queue; a record that both admit must not wait for itself.
  logText(false, TavrelDDLogFlagError, "twice");
  logText(false, TavrelDDLogFlagDebug, "once");
  EXPECT_EQ(logger->texts(), (std::vector<std::string>{"twice", "twice", "once"}));
  TavrelDDLog::removeLogger(logger);
  EXPECT_TRUE(TavrelDDLog::allLoggers().empty());
  EXPECT_EQ(logger->additions, 2);
  EXPECT_EQ(logger->removals, 2);
}

TEST_F(TavrelDDLogTest, LoggersAreAddedAndRemovedBetweenTheRecordsOfTheirCaller) {
  const auto first = addRecorder();
  logText(true, TavrelDDLogFlagInfo, "1");
  const auto second = addRecorder();
  logText(true, TavrelDDLogFlagInfo, "2");
  TavrelDDLog::removeLogger(first);
  logText(true, TavrelDDLogFlagInfo, "3");
  TavrelDDLog::flushLog();
  EXPECT_EQ(first->texts(), (std::vector<std::string>{"1", "2"}));
  EXPECT_EQ(second->texts(), (std::vector<std::string>{"2", "3"}));
}

TEST_F(TavrelDDLogTest, ASynchronousCallReturnsAfterTheSlowestLogger) {
  const auto fast = addRecorder();
  const auto slow = addRecorder();
  slow->onMessage = [](const TavrelDDLogMessage&) { std::this_thread::sleep_for(20ms); };
  for (int i = 0; i < 3; ++i) logText(true, TavrelDDLogFlagInfo, "earlier");
  logText(false, TavrelDDLogFlagError, "now");
  EXPECT_EQ(fast->texts().size(), 4U);
  EXPECT_EQ(slow->texts().size(), 4U);
}

TEST_F(TavrelDDLogTest, NoLoggerBeginsARecordBeforeAllHaveFinishedTheOneBefore) {
  std::atomic<int> finished[2] = {0, 0};
  std::atomic<int> furthestAhead = 0;
  std::shared_ptr<RecordingLogger> loggers[2] = {addRecorder(), addRecorder()};
  for (int self = 0; self < 2; ++self) {
    loggers[self]->onMessage = [&, self](const TavrelDDLogMessage&) {
      furthestAhead = std::max(furthestAhead.load(), finished[self] - finished[1 - self]);
      if (self == 1 && finished[1] % 100 == 0) std::this_thread::sleep_for(1ms);
      ++finished[self];
    };
  }
  for (int i = 0; i < 2000; ++i) logText(true, TavrelDDLogFlagInfo, "step");
  TavrelDDLog::flushLog();
  EXPECT_EQ(finished[0] + finished[1], 4000);
  EXPECT_LE(furthestAhead, 0);
}

TEST_F(TavrelDDLogTest, TheBacklogBlocksAtAThousandAndRecovers) {
  const auto logger = addRecorder();
  DispatchSemaphore gate(0);
  logger->onMessage = [&](const TavrelDDLogMessage&) { gate.wait(); };
  std::atomic<int> calls = 0;
  std::thread caller([&] {
    for (int i = 0; i < 1500; ++i) {
      logText(true, TavrelDDLogFlagInfo, std::to_string(i));
      ++calls;
    }
  });
  // The number of calls once it has reached `expected`, and some time later.
  const auto settledAt = [&](int expected) {
    for (int i = 0; i < 2000 && calls < expected; ++i) std::this_thread::sleep_for(5ms);
    std::this_thread::sleep_for(50ms);
    return calls.load();
  };
  EXPECT_EQ(settledAt(1000), 1000);
  gate.signal();
  EXPECT_EQ(settledAt(1001), 1001);  // each record that is written makes room for one
  for (int i = 0; i < 1499; ++i) gate.signal();
  caller.join();
  TavrelDDLog::flushLog();
  const auto texts = logger->texts();
  ASSERT_EQ(texts.size(), 1500U);
  for (int i = 0; i < 1500; ++i) EXPECT_EQ(texts[i], std::to_string(i));
}

TEST_F(TavrelDDLogTest, ALoggerThatThrowsIsReportedTenTimesAndTheOthersGoOn) {
  const test::ConsoleCapture console;
  const auto good = addRecorder();
  const auto bad = addRecorder();
  bad->onMessage = [](const TavrelDDLogMessage& message) {
    if (message.message() == "0") throw 1;
    throw std::runtime_error("broken");
  };
  for (int i = 0; i < 50; ++i) logText(i % 10 != 0, TavrelDDLogFlagInfo, std::to_string(i));
  TavrelDDLog::flushLog();
  EXPECT_EQ(good->texts().size(), 50U);
  EXPECT_EQ(bad->flushes, 1);
  ASSERT_EQ(console.messages().size(), 11U);
  EXPECT_EQ(console.messages()[0], "TavrelDDLog: logger \"test.recording\" failed: unknown exception");
  EXPECT_EQ(console.messages()[9], "TavrelDDLog: logger \"test.recording\" failed: broken");
}

TEST_F(TavrelDDLogTest, ALoggerMayLogItselfWithoutWaiting) {
  const auto logger = addRecorder();
  logger->onMessage = [](const TavrelDDLogMessage& message) {
    if (message.message() != "outer") return;
    logText(false, TavrelDDLogFlagError, "inner");
    TavrelDDLog::flushLog();
    EXPECT_EQ(TavrelDDLog::allLoggers().size(), 1U);
  };
  logText(false, TavrelDDLogFlagInfo, "outer");
  TavrelDDLog::flushLog();
  EXPECT_EQ(logger->texts(), (std::vector<std::string>{"outer", "inner"}));
}

TEST_F(TavrelDDLogTest, LoggersWithoutAQueueGetOne) {
  struct Bare : TavrelDDLogger {
    void logMessage(const TavrelDDLogMessage&) override { label = DispatchQueue::current()->label(); }
    std::string loggerName() const override { return "test.bare"; }
    std::string label;
  };
  const auto logger = std::make_shared<Bare>();
  TavrelDDLog::addLogger(logger);
  logText(false, TavrelDDLogFlagInfo, "text");
  EXPECT_EQ(logger->label, "test.bare");
}

TEST_F(TavrelDDLogTest, FlushReachesEveryLoggerAlsoWhenTheApplicationEnds) {
  TavrelDDLog::flushLog();  // without loggers it returns
  const auto first = addRecorder();
  const auto second = addRecorder();
  logText(true, TavrelDDLogFlagInfo, "text");
  Application::shared().terminate();
  RunLoop::main().runFor(10s);  // until the application stops it
  EXPECT_EQ(first->flushes, 1);
  EXPECT_EQ(second->flushes, 1);
  EXPECT_EQ(second->texts().size(), 1U);
}

TEST_F(TavrelDDLogTest, ManyThreadsKeepTheirOrderAtEveryLogger) {
  constexpr int kThreads = 4;
  constexpr int kRecords = 5000;
  std::shared_ptr<RecordingLogger> loggers[3] = {addRecorder(), addRecorder(), addRecorder()};
  std::vector<std::thread> threads;
  for (int thread = 0; thread < kThreads; ++thread) {
    threads.emplace_back([thread] {
      for (int i = 0; i < kRecords; ++i) {
        logText(i % 1000 != 999, TavrelDDLogFlagInfo, fmt::format("{} {}", thread, i));
      }
    });
  }
  for (auto& thread : threads) thread.join();
  TavrelDDLog::flushLog();
  for (const auto& logger : loggers) {
    int next[kThreads] = {};
    for (const std::string& text : logger->texts()) {
      const int thread = text[0] - '0';
      ASSERT_EQ(text, fmt::format("{} {}", thread, next[thread]++));
    }
    for (const int count : next) EXPECT_EQ(count, kRecords);
  }
}

TEST_F(TavrelDDLogTest, ARecordKnowsWhereItComesFrom) {
  const auto logger = addRecorder();
  std::optional<TavrelDDLogMessage> record;
  logger->onMessage = [&](const TavrelDDLogMessage& message) { record = message; };
  const auto queue = DispatchQueue::create("test.caller");
  const auto before = std::chrono::system_clock::now();
  pid_t thread = 0;
  queue->sync([&] {
    thread = gettid();
    TavrelDDLog::log(false, 15, 2, 7, "a/b/Source.file.cpp", "Class::function", 12, "Tag", "{} of {}", 1, "two");
  });
  ASSERT_TRUE(record);
  EXPECT_EQ(record->message(), "1 of two");
  EXPECT_EQ(record->level(), 15U);
  EXPECT_EQ(record->flag(), 2U);
  EXPECT_EQ(record->context(), 7);
  EXPECT_EQ(record->file(), "a/b/Source.file.cpp");
  EXPECT_EQ(record->lastPathComponent(), "Source.file.cpp");
  EXPECT_EQ(record->fileName(), "Source.file");
  EXPECT_EQ(record->function(), "Class::function");
  EXPECT_EQ(record->line(), 12U);
  EXPECT_EQ(record->tag(), "Tag");
  EXPECT_EQ(record->threadID(), std::to_string(thread));
  EXPECT_EQ(record->threadName(), "test.caller");
  EXPECT_EQ(record->queueLabel(), "test.caller");
  EXPECT_GE(record->timestamp(), before);
}

TEST_F(TavrelDDLogTest, ClassesCarryTheirOwnLevels) {
  EXPECT_FALSE(TavrelDDLog::isRegisteredClass("Camera"));
  {
    TavrelDDLogClass camera("Camera", TavrelDDLogLevelWarning);
    const TavrelDDLogClass microphone("Microphone");
    EXPECT_EQ(TavrelDDLog::registeredClassNames(), (std::vector<std::string>{"Camera", "Microphone"}));
    EXPECT_EQ(TavrelDDLog::levelForClassWithName("Camera"), 3U);
    TavrelDDLog::setLevel(31, "Camera");
    EXPECT_EQ(TavrelDDLog::levelForClass(camera), 31U);
    TavrelDDLog::setLevel(1, camera);
    EXPECT_EQ(TavrelDDLog::levelForClassWithName("Camera"), 1U);
    TavrelDDLog::setLevel(1, "Nobody");

    const auto logger = addRecorder();
    TAVREL_LOG_AT(camera.level(), TavrelDDLogFlagWarning, camera.name(), "hidden");
    TAVREL_LOG_AT(microphone.level(), TavrelDDLogFlagWarning, microphone.name(), "shown");
    TavrelDDLog::flushLog();
    EXPECT_EQ(logger->texts(), std::vector<std::string>{"shown"});
  }
  EXPECT_EQ(TavrelDDLog::levelForClassWithName("Camera"), 0U);
  EXPECT_TRUE(TavrelDDLog::registeredClasses().empty());
}

TEST_F(TavrelDDLogTest, OneRecordCanBeHandedOverOnTheLoggingQueueOnly) {
  const auto logger = addRecorder();
  const TavrelDDLogMessage message("direct", 15, 8, 0, "f.cpp", "f", 1, "Tag");
  TavrelDDLog::loggingQueue()->sync([&] {
    EXPECT_TRUE(TavrelDDLog::isOnLoggingQueue());
    TavrelDDLog::lt_log(message);
    EXPECT_EQ(logger->texts().size(), 1U);
    TavrelDDLog::log(false, message);  // cannot wait here
  });
  TavrelDDLog::flushLog();
  EXPECT_EQ(logger->texts().size(), 2U);
  EXPECT_FALSE(TavrelDDLog::isOnLoggingQueue());
  EXPECT_DEATH(TavrelDDLog::lt_log(message), "This method should only be run on the logging thread/queue");
}

/// Runs in a process that sees a single processor.
void writeOnOneProcessor() {
  std::vector<std::string> order;
  const auto first = addRecorder();
  const auto second = addRecorder(TavrelDDLogLevelError);
  first->onMessage = [&](const TavrelDDLogMessage& message) { order.push_back(fmt::format("a{}", message.message())); };
  second->onMessage = [&](const TavrelDDLogMessage& message) {
    order.push_back(fmt::format("b{}", message.message()));
  };
  for (int i = 0; i < 3; ++i) logText(true, i == 1 ? TavrelDDLogFlagInfo : TavrelDDLogFlagError, std::to_string(i));
  logText(false, TavrelDDLogFlagError, "3");
  const std::vector<std::string> expected = {"a0", "b0", "a1", "a2", "b2", "a3", "b3"};
  std::exit(order == expected ? 0 : 1);
}

TEST_F(TavrelDDLogTest, OnOneProcessorTheLoggersWriteOneAfterTheOther) {
  cpu_set_t all;
  ASSERT_EQ(sched_getaffinity(0, sizeof all, &all), 0);
  cpu_set_t one;
  CPU_ZERO(&one);
  for (int i = 0; i < CPU_SETSIZE && CPU_COUNT(&one) == 0; ++i) {
    if (CPU_ISSET(i, &all)) CPU_SET(i, &one);
  }
  // The test's process starts afresh and inherits this thread's processors.
  ASSERT_EQ(sched_setaffinity(0, sizeof one, &one), 0);
  EXPECT_EXIT(writeOnOneProcessor(), ::testing::ExitedWithCode(0), "");
  sched_setaffinity(0, sizeof all, &all);
}

TEST_F(TavrelDDLogTest, TheEndOfTheProcessWritesWhatIsQueuedAndLaterRecordsGoToTheConsole) {
  const auto end = [] {
    const auto logger = addRecorder();
    logger->onMessage = [](const TavrelDDLogMessage& message) {
      std::this_thread::sleep_for(1ms);
      if (message.message() == "99") std::fputs("wrote the last\n", stderr);
    };
    for (int i = 0; i < 100; ++i) logText(true, TavrelDDLogFlagInfo, std::to_string(i));
    atTheVeryEnd.action = [] { logText(false, TavrelDDLogFlagError, "after the end"); };
    std::exit(0);
  };
  EXPECT_EXIT(end(), ::testing::ExitedWithCode(0), "wrote the last\n.*after the end");
}

}  // namespace
}  // namespace tavrel
