#include "TavrelBase/Log/TavrelLogger.h"

#include <fcntl.h>
#include <pty.h>
#include <sys/wait.h>
#include <unistd.h>

#include "Support/LogTestSupport.h"

namespace tavrel {
namespace {

using TavrelLoggerTest = test::LogTest;
using test::RecordingLogger;
using ::testing::HasSubstr;

TEST_F(TavrelLoggerTest, LevelNumbersSetTheMask) {
  const std::pair<int, unsigned> expected[] = {{1, 1}, {2, 3}, {3, 7}, {4, 15}, {5, 31}, {0, 0}, {6, 0}, {-1, 0}};
  EXPECT_EQ(tavrelDDLogLevel, 15U);
  for (const auto& [number, mask] : expected) {
    TavrelLogger::setLogLevel(number);
    EXPECT_EQ(tavrelDDLogLevel, mask) << number;
  }
  const std::pair<unsigned, std::string_view> names[] = {{1, "[E]"},  {3, "[W]"}, {7, "[I]"}, {15, "[D]"},
                                                         {31, "[V]"}, {0, "[N]"}, {2, "[N]"}};
  for (const auto& [level, name] : names) EXPECT_EQ(TavrelDDNameOfLevel(level), name);
}

struct Caller {
  static void warn(int& evaluations) { TAVREL_LOG_WARNING("Tag", "warned {}", ++evaluations); }
  template <typename T>
  void fail(T value) const {
    [&] { TAVREL_LOG_ERROR("Tag", "failed {}", value); }();
  }
};

TEST_F(TavrelLoggerTest, AGuardedCallEvaluatesNothingWhenItsFlagIsOff) {
  const auto logger = std::make_shared<RecordingLogger>();
  std::vector<std::string> functions;
  logger->onMessage = [&](const TavrelDDLogMessage& message) { functions.emplace_back(message.function()); };
  TavrelDDLog::addLogger(logger);
  int evaluations = 0;
  TavrelLogger::setLogLevel(1);
  Caller::warn(evaluations);
  Caller().fail("loudly");  // synchronous, so it is there already
  EXPECT_EQ(evaluations, 0);
  EXPECT_EQ(logger->texts(), std::vector<std::string>{"failed loudly"});
  TavrelLogger::setLogLevel(2);
  Caller::warn(evaluations);
  TavrelDDLog::flushLog();
  EXPECT_EQ(logger->texts().back(), "warned 1");
  EXPECT_EQ(functions, (std::vector<std::string>{"Caller::fail", "Caller::warn"}));
}

TEST_F(TavrelLoggerTest, FunctionNamesAreQualifiedAndBare) {
  const std::pair<std::string_view, std::string_view> expected[] = {
      {"void tavrel::TavrelCamera::setPreferredTorchMode(int)", "TavrelCamera::setPreferredTorchMode"},
      {"tavrel::TavrelCamera::~TavrelCamera()", "TavrelCamera::~TavrelCamera"},
      {"static const char *tavrel::A::name()", "A::name"},
      {"std::map<int, std::pair<A, B> > tavrel::A::f(const std::map<int, int>&) const [with T = int]", "A::f"},
      {"void tavrel::{anonymous}::f()", "f"},
      {"void tavrel::(anonymous namespace)::A::f(int (*)(int))", "A::f"},
      {"bool tavrel::A::operator()(int) const", "A::operator()"},
      {"bool tavrel::A::operator<(const tavrel::A&) const", "A::operator<"},
      {"tavrel::A::operator bool() const", "A::operator bool"},
      {"tavrel::A::f(int)::<lambda(int)>", "A::f"},
      {"auto tavrel::A::f()::(anonymous class)::operator()() const", "A::f"},
      {"tavrel::A::f<std::vector<int>, B<C> >() const::<lambda()>", "A::f"},
      {"T tavrel::Box<T>::get(U) [with U = double; T = int]", "Box<T>::get"},
      {"int main(int, char**)", "main"},
      {"", ""},
  };
  for (const auto& [description, name] : expected) EXPECT_EQ(qualifiedFunctionName(description), name);
}

TEST_F(TavrelLoggerTest, AnArgumentThatCannotBeFormattedIsSaid) {
  const auto logger = std::make_shared<RecordingLogger>();
  TavrelDDLog::addLogger(logger);
  TAVREL_LOG_ERROR("Tag", "value {:{}}", "text", -1);
  EXPECT_EQ(logger->texts(), std::vector<std::string>{"(cannot format \"value {:{}}\": negative width)"});
}

TEST_F(TavrelLoggerTest, TheSharedFileLoggerIsAddedOnRequest) {
  const test::LogTestFolder folder;
  TavrelLogger& shared = TavrelLogger::sharedLogger();
  const auto logger =
      std::make_shared<TavrelDDFileLogger>(std::make_shared<TavrelDDLogFileManagerDefault>(folder.path()));
  shared.setFileLogger(logger);
  EXPECT_EQ(shared.fileLogger(), logger);
  TavrelLogger::enableFileLoggerWithLogLevel(TavrelDDLogLevelError);
  TavrelLogger::enableFileLoggerWithLogLevel(TavrelDDLogLevelError);
  TAVREL_LOG_ERROR("TavrelCamera", "an error");
  TAVREL_LOG_WARNING("TavrelCamera", "no error");
  TavrelDDLog::flushLog();
  const auto lines = test::readLines(logger->currentLogFileInfo()->filePath());
  ASSERT_EQ(lines.size(), 1U);
  EXPECT_THAT(lines[0],
              HasSubstr("[E] TavrelCamera an error TavrelLoggerTest_TheSharedFileLoggerIsAddedOnRequest_Test::"
                        "TestBody TavrelLoggerTest.cpp:"));
  TavrelLogger::enableFileLogger();
  EXPECT_EQ(TavrelDDLog::allLoggers().size(), 2U);  // with the level of the moment besides
  shared.setFileLogger(nullptr);
}

/// What a fresh process writes to its standard error.
void logToTheConsole() {
  TAVREL_LOG_DEBUG("Tag", "admitted");
  TavrelLogger::setLogLevel(5);
  TAVREL_LOG_VERBOSE("Tag", "not admitted: the console keeps the level of the start");
  TAVREL_LOG_ERROR("Tag", "an error");
  std::exit(0);
}

TEST(TavrelLoggerConsoleTest, TheConsoleIsAttachedFromTheStart) {
  // Not a fixture that removes loggers: the process that runs the statement starts afresh.
  EXPECT_EXIT(logToTheConsole(), ::testing::ExitedWithCode(0),
              ::testing::AllOf(
                  ::testing::ContainsRegex("[0-9-]+ [0-9:.]+ [+-][0-9]{4} [^ ]+\\[[0-9]+\\] \\[D\\] Tag: admitted\n"),
                  ::testing::ContainsRegex("\\[E\\] Tag: an error\n"), ::testing::Not(HasSubstr("not admitted")),
                  ::testing::Not(HasSubstr("\033"))));
}

TEST_F(TavrelLoggerTest, LinesAreColouredByLevelOnATerminalOnly) {
  int terminal = -1;
  int client = -1;
  ASSERT_EQ(openpty(&terminal, &client, nullptr, nullptr, nullptr), 0);
  unsetenv("NO_COLOR");
  const auto logger = std::make_shared<TavrelDDTTYLogger>(client);
  TavrelDDLog::addLogger(logger);
  for (const unsigned flag : {1U, 2U, 4U}) test::logText(false, flag, "text\xFF");
  char buffer[4096] = {};
  std::string text;
  while (std::ranges::count(text, '\n') < 3)
    text.append(buffer, static_cast<std::size_t>(std::max<ssize_t>(read(terminal, buffer, sizeof buffer), 0)));
  EXPECT_THAT(text, ::testing::ContainsRegex("^\033\\[31m[^\n]*\\[E\\] Tag: text\xEF\xBF\xBD\033\\[0m\r\n"
                                             "\033\\[33m[^\n]*\\[W\\] Tag: text\xEF\xBF\xBD\033\\[0m\r\n"
                                             "[^\n\033]*\\[I\\] Tag: text\xEF\xBF\xBD\r\n$"));
  TavrelDDLog::removeLogger(logger);
  TavrelDDLog::flushLog();
  close(terminal);
  close(client);
}

/// A process that forks before it logs: no thread of the library may exist yet.
void logAfterFork() {
  const pid_t child = fork();
  if (child == 0) {
    TAVREL_LOG_ERROR("Tag", "from the child");
    std::exit(0);
  }
  int status = 1;
  waitpid(child, &status, 0);
  std::exit(WEXITSTATUS(status));
}

TEST(TavrelLoggerConsoleTest, AProgramMayForkBeforeItLogs) {
  EXPECT_EXIT(logAfterFork(), ::testing::ExitedWithCode(0), "from the child");
}

}  // namespace
}  // namespace tavrel
