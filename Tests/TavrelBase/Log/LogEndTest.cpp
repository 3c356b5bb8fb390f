// How processes end, and with them their logs: nothing that was logged is missing, and the last line says why.
#include <sys/wait.h>
#include <unistd.h>

#include <atomic>
#include <csignal>
#include <cstdlib>
#include <stdexcept>
#include <thread>
#include <vector>

#include "Platform/Foundation/ConsoleLog.h"
#include "Platform/Foundation/FatalAssertion.h"
#include "Support/LogTestSupport.h"
#include "Support/Sanitizers.h"

/// Leaves crashes to the handlers that are tested, which do what the thread sanitizer calls unsafe.
extern "C" const char* __tsan_default_options();  // NOLINT(bugprone-reserved-identifier)
const char* __tsan_default_options() {            // NOLINT(bugprone-reserved-identifier)
  return "report_signal_unsafe=0:handle_segv=0:handle_sigfpe=0:handle_sigbus=0:handle_sigill=0:handle_abort=0";
}

namespace tavrel {
namespace {

namespace fs = std::filesystem;
using namespace std::chrono_literals;
using test::count;
using ::testing::ExitedWithCode;
using ::testing::HasSubstr;

constexpr int kLines = 5000;
constexpr unsigned kLimit = 120;  // seconds, for a process that would otherwise hang

/// A folder that the processes of the tests know too.
fs::path sharedFolder() {
  constexpr const char* kVariable = "TAVREL_LOG_END_TEST";
  if (const char* known = std::getenv(kVariable)) return known;
  static const test::LogTestFolder folder;
  setenv(kVariable, folder.path().c_str(), 1);
  return folder.path();
}

/// The text of all log files, which are removed.
std::string takeEverything() {
  std::string text;
  for (const auto& entry : fs::recursive_directory_iterator(sharedFolder()))
    if (entry.is_regular_file()) text += test::readText(entry.path());
  for (const auto& entry : fs::directory_iterator(sharedFolder())) fs::remove_all(entry);
  return text;
}

std::shared_ptr<TavrelDDFileLogger> addFileLogger() {
  alarm(kLimit);
  auto logger = std::make_shared<TavrelDDFileLogger>(std::make_shared<TavrelDDLogFileManagerDefault>(sharedFolder()));
  TavrelDDLog::addLogger(logger);
  return logger;
}

int overflow(int depth) {
  volatile char frame[4096];
  frame[depth % 4096] = 1;
  const auto next = &overflow;
  return depth < 1 << 30 ? next(depth + 1) + frame[0] : 0;
}

int* volatile nowhere = nullptr;

/// By a signal, not by a sanitizer that sees it coming.
__attribute__((no_sanitize("undefined"))) void crash() { *nowhere = 1; }

struct CrashingFormatter : TavrelDDLogFormatter {
  std::string formatLogMessage(const TavrelDDLogMessage& message) override {
    if (message.message() == "crash") crash();
    return {};
  }
};

struct Way {
  const char* name;
  void (*end)();
  bool (*isExpected)(int status);
  const char* lastLine;
  bool keepsConsole = true;
};

template <int signal>
bool isKilled(int status) {
#if TAVREL_SANITIZES_ADDRESSES
  // The handler before was the sanitizer's, which reports and ends the process itself.
  if (WIFEXITED(status)) return (signal == SIGSEGV || signal == SIGFPE) && WEXITSTATUS(status) != 0;
#endif
  return WIFSIGNALED(status) && WTERMSIG(status) == signal;
}

bool hasExited(int status) { return WIFEXITED(status) && WEXITSTATUS(status) == 3; }

const Way kWays[] = {
    {"fatalAssertion", [] { fatalAssertion("broken {}", 7); }, isKilled<SIGABRT>,
     "[E] TavrelLogger *** Assertion failure: broken 7 "},
    {"terminate", [] { std::terminate(); }, isKilled<SIGABRT>, "received SIGABRT"},
    {"exception", [] { std::thread([] { throw std::runtime_error("unexpected"); }).join(); }, isKilled<SIGABRT>,
     "received SIGABRT"},
    {"SIGSEGV", crash, isKilled<SIGSEGV>, "received SIGSEGV"},
    {"SIGFPE", [] { std::raise(SIGFPE); }, isKilled<SIGFPE>, "received SIGFPE"},
    {"SIGTERM", [] { kill(getpid(), SIGTERM), pause(); }, isKilled<SIGTERM>, "received SIGTERM"},
    {"stack", [] { overflow(0); }, isKilled<SIGSEGV>, "received SIGSEGV"},
    {"thread", [] { std::thread(crash).join(); }, isKilled<SIGSEGV>, "received SIGSEGV"},
    {"formatter",
     [] {
       addFileLogger()->setLogFormatter(std::make_shared<CrashingFormatter>());
       test::logText(true, TavrelDDLogFlagInfo, "crash");
       TavrelDDLog::flushLog();  // a caller waits for a slow disk only for a while
     },
     isKilled<SIGSEGV>, "received SIGSEGV"},
    {"quick_exit", [] { std::quick_exit(3); }, hasExited, "number 4999"},
    {"_exit", [] { _exit(3); }, hasExited, "number 4999", false},
    {"exit", [] { std::exit(3); }, hasExited, "number 4999"},
    {"SIGKILL", [] { kill(getpid(), SIGKILL), pause(); }, isKilled<SIGKILL>, "number 4999", false},
};

class LogEndTest : public ::testing::TestWithParam<Way> {};

TEST_P(LogEndTest, LosesNothingAndSaysWhy) {
  fs::create_directories(sharedFolder());
  const auto end = [] {
    addFileLogger();
    auto longest = 0ns;
    for (int i = 0; i < kLines; ++i) {
      const auto start = std::chrono::steady_clock::now();
      TAVREL_LOG_INFO("Tag", "number {}", i);
      longest = std::max<std::chrono::nanoseconds>(longest, std::chrono::steady_clock::now() - start);
    }
    if (longest > 400ms) ConsoleLog::write("the disk is slow");
    GetParam().end();
  };
  constexpr std::size_t kMostLost = TavrelDDLog::kMaximumQueueSize + TavrelDDLog::kMaximumGathering;
  bool isDiskSlow = false;
  const auto hasEveryLine = [&](const std::string& console) {
    isDiskSlow = count(console, "the disk is slow") > 0;
    const bool mayLose = isDiskSlow || !GetParam().keepsConsole;
    return count(console, "[I] Tag: number ") + (mayLose ? kMostLost : 0) >= kLines;
  };
  EXPECT_EXIT(end(), GetParam().isExpected, ::testing::ResultOf(hasEveryLine, true));
  const std::string text = takeEverything();
  ASSERT_FALSE(text.empty());
  EXPECT_EQ(text.back(), '\n');
  // While a line takes longer than callers wait, lines are queued; an end that does not wait so long loses those.
  if (isDiskSlow) {
    EXPECT_GE(count(text, "[I] Tag number ") + kMostLost, static_cast<std::size_t>(kLines));
    return;
  }
  EXPECT_EQ(count(text, "[I] Tag number "), static_cast<std::size_t>(kLines));
  EXPECT_THAT(text.substr(text.rfind('\n', text.size() - 2) + 1), HasSubstr(GetParam().lastLine));
}

INSTANTIATE_TEST_SUITE_P(Ways, LogEndTest, ::testing::ValuesIn(kWays),
                         [](const auto& way) { return std::string(way.param.name); });

TEST(LogConsoleTest, LosesNothingEitherWithoutALogFile) {
  for (const auto leave : {+[] { fatalAssertion("broken"); }, +[] { std::quick_exit(3); }, +[] { std::exit(3); }}) {
    const auto end = [&] {
      alarm(kLimit);
      for (int i = 0; i < kLines; ++i) TAVREL_LOG_INFO("Tag", "number {}", i);
      leave();
    };
    const auto lines = [](const std::string& console) { return count(console, "[I] Tag: number "); };
    EXPECT_EXIT(
        end(), [](int status) { return hasExited(status) || isKilled<SIGABRT>(status); },
        ::testing::ResultOf(lines, kLines));
  }
}

TEST(LogConsoleTest, ASlowLoggerHasTheTimeThatNothingElseNeeds) {
  const auto end = [] {
    alarm(kLimit);
    const auto slow = std::make_shared<test::RecordingLogger>();
    slow->onMessage = [](const TavrelDDLogMessage&) {
      std::this_thread::sleep_for(6ms);
      if (write(STDERR_FILENO, "heard\n", 6) != 6) _exit(1);
    };
    TavrelDDLog::addLogger(slow);
    for (int i = 0; i < 100; ++i) TAVREL_LOG_INFO("Tag", "number {}", i);
    std::exit(3);
  };
  const auto heard = [](const std::string& console) { return count(console, "heard\n"); };
  EXPECT_EXIT(end(), hasExited, ::testing::ResultOf(heard, 100U));
}

void handOn() {
  static volatile std::sig_atomic_t handled = 0;
  struct sigaction before {};
  sigaction(SIGSEGV, nullptr, &before);
  std::signal(SIGTERM, [](int) { handled = 1; });
  const auto logger = addFileLogger();
  test::logText(false, TavrelDDLogFlagInfo, "text");
  std::raise(SIGTERM);
  for (int i = 0; i < 1000 && handled == 0; ++i) std::this_thread::sleep_for(1ms);
  TavrelLogger::setHandlesSignals(true);
  std::signal(SIGABRT, SIG_DFL);
  TavrelLogger::setHandlesSignals(false);
  struct sigaction present {};
  sigaction(SIGSEGV, nullptr, &present);
  std::exit(handled == 1 && present.sa_handler == before.sa_handler ? 0 : 1);
}

TEST(LogSignalTest, AreHandedOnToTheHandlerBeforeAndCanBeLeftAlone) { EXPECT_EXIT(handOn(), ExitedWithCode(0), ""); }

/// A process whose loggers have worked, and have threads, makes a child that logs, and another that only ends.
void forkAfterLogging() {
  addFileLogger();
  TavrelDDLog::addLogger(std::make_shared<TavrelDDTTYLogger>(STDERR_FILENO));
  for (int i = 0; i < 100; ++i) TAVREL_LOG_INFO("Tag", "parent {}", i);
  TAVREL_LOG_ERROR("Tag", "parent's error");
  for (const bool logs : {true, false}) {
    const pid_t child = fork();
    if (child == 0) {
      alarm(kLimit);
      if (logs) TAVREL_LOG_ERROR("Tag", "child's error");
      for (int i = 0; logs && i < 100; ++i) TAVREL_LOG_INFO("Tag", "child {}", i);
      if (logs) TavrelDDLog::flushLog();
      std::exit(3);
    }
    int status = 0;
    waitpid(child, &status, 0);
    if (!hasExited(status)) std::exit(1);
    if (logs) TAVREL_LOG_INFO("Tag", "child was {}", child);
  }
  for (int i = 0; i < 100; ++i) TAVREL_LOG_INFO("Tag", "parent {}", 100 + i);
  std::exit(0);
}

constexpr bool kChildrenHaveThreads = TAVREL_SANITIZES_THREADS == 0 && TAVREL_SANITIZES_ADDRESSES == 0;
constexpr const char* kNoThreads = "the sanitizers' allocators do not support children of processes with threads";

TEST(LogForkTest, AChildOfAProcessThatHasLoggedLogsAndEnds) {
  if (!kChildrenHaveThreads) GTEST_SKIP() << kNoThreads;
  fs::create_directories(sharedFolder());
  EXPECT_EXIT(forkAfterLogging(), ExitedWithCode(0), "child's error(.|\n)*child 99");
  const std::string text = takeEverything();
  EXPECT_EQ(count(text, "Tag parent "), 200U);
  EXPECT_EQ(count(text, "[E] Tag parent's error"), 1U);
  EXPECT_EQ(count(text, "Tag child "), 101U);
  const auto was = text.find("child was ") + 10;
  const std::string child = text.substr(was, text.find(' ', was) - was);
  EXPECT_THAT(text, HasSubstr(fmt::format("[{}:{}] [E] Tag child's error", child, child)));
}

/// Children of a process whose threads never stop logging, also through a logger that has a queue of its own.
void forkWhileThreadsLog() {
  addFileLogger();
  TavrelDDLog::addLogger(std::make_shared<test::RecordingLogger>());
  std::atomic<bool> ends = false;
  std::vector<std::thread> threads;
  for (int i = 0; i < 4; ++i) {
    threads.emplace_back([&] {
      while (!ends) TAVREL_LOG_DEBUG("Tag", "parent");
    });
  }
  bool isGood = true;
  for (int i = 0; i < 10; ++i) {
    const pid_t child = fork();
    if (child == 0) {
      alarm(kLimit);
      TAVREL_LOG_ERROR("Tag", "child {}", i);
      std::exit(3);
    }
    int status = 0;
    isGood = waitpid(child, &status, 0) == child && hasExited(status) && isGood;
  }
  ends = true;
  for (auto& thread : threads) thread.join();
  std::exit(isGood ? 0 : 1);
}

TEST(LogForkTest, AChildLogsAndEndsWhateverTheOtherThreadsWereIn) {
  if (!kChildrenHaveThreads) GTEST_SKIP() << kNoThreads;
  fs::create_directories(sharedFolder());
  EXPECT_EXIT(forkWhileThreadsLog(), ExitedWithCode(0), "");
  EXPECT_EQ(count(takeEverything(), "[E] Tag child "), 10U);
}

/// Eight processes that fill and roll the files of one folder at the same time.
void logInProcesses(unsigned kept) {
  for (int process = 0; process < 8; ++process) {
    if (fork() != 0) continue;
    TavrelDDLog::removeAllLoggers();
    const auto logger = addFileLogger();
    logger->setMaximumFileSize(64 * 1024);
    logger->logFileManager()->setMaximumNumberOfLogFiles(kept);
    for (int i = 0; i < kLines; ++i) TAVREL_LOG_INFO("Tag", "number {}", i);
    std::exit(0);
  }
  int worst = 0;
  for (int status = 0; wait(&status) > 0;) worst = std::max(worst, status);
  std::exit(worst);
}

TEST(LogFolderTest, EightProcessesKeepTheLimitAndEveryLine) {
  fs::create_directories(sharedFolder());
  EXPECT_EXIT(logInProcesses(0), ExitedWithCode(0), "^$");
  for (const auto& entry : fs::directory_iterator(sharedFolder())) EXPECT_LT(entry.file_size(), 64U * 1024 + 8 * 200);
  EXPECT_EQ(count(takeEverything(), "Tag number "), 8U * kLines);
  EXPECT_EXIT(logInProcesses(1), ExitedWithCode(0), "^$");  // no complaint about a file that was deleted too early
  takeEverything();
}

}  // namespace
}  // namespace tavrel
