#include "TavrelBase/Log/TavrelDDFileLogger.h"

#include <unistd.h>

#include "FileLoggerTestSupport.h"

namespace tavrel {
namespace {

using namespace std::chrono_literals;
using test::FileLoggerTest;
using test::logText;
using test::readText;
using ::testing::HasSubstr;

TEST_F(FileLoggerTest, ALineSaysWhoWhatAndWhere) {
  logger_->setLogFormatter(nullptr);
  TavrelDDLog::log(false, "torch on", 15, 1, 0, "Capture/Camera.cpp", "TavrelCamera::setTorch", 12, "TavrelCamera");
  logText(true, TavrelDDLogFlagDebug, "ends itself\n");
  TavrelDDLog::flushLog();
  const std::string head = fmt::format("{}[{}:{}] ", program_invocation_short_name, getpid(), gettid());
  EXPECT_EQ(readText(current()),
            head + "[D] TavrelCamera torch on TavrelCamera::setTorch Camera.cpp:12\n" +  //
                head + "[V] Tag ends itself\n Class::function Source.cpp:42\n");
}

TEST_F(FileLoggerTest, TheFormattersResultEndsTheLine) {
  const TavrelDDLogMessage::Clock::time_point time(std::chrono::sys_days(std::chrono::March / 1 / 2026) + 1h + 2min +
                                                   3s + 4ms);
  TavrelDDLog::log(false, TavrelDDLogMessage("text", 15, 4, 0, "f.cpp", "f", 1, "Tag", 0, time));
  EXPECT_THAT(readText(current()), HasSubstr(" [I] Tag text f f.cpp:1 2026/03/01 01:02:03:004 +0000\n"));

  struct Marked : TavrelDDLogFormatter {
    std::string formatLogMessage(const TavrelDDLogMessage&) override { return "<mark>"; }
  };
  logger_->setLogFormatter(std::make_shared<Marked>());
  log("a");
  EXPECT_TRUE(logger_->automaticallyAppendNewlineForCustomFormatters());
  logger_->setAutomaticallyAppendNewlineForCustomFormatters(false);
  log("b");
  log("c");
  EXPECT_THAT(readText(current()),
              ::testing::ContainsRegex(" a [^\n]* <mark>\n[^\n]* b [^\n]* <mark>[^\n]* c [^\n]* <mark>$"));
}

TEST_F(FileLoggerTest, DefaultsAreThoseOfTheConstants) {
  EXPECT_EQ(logger_->maximumFileSize(), 6U << 20);
  EXPECT_EQ(logger_->rollingFrequency(), 86400.0);
  EXPECT_FALSE(logger_->doNotReuseLogFiles());
  EXPECT_EQ(manager_->maximumNumberOfLogFiles(), 10U);
  EXPECT_EQ(manager_->logFilesDiskQuota(), 20U << 20);
}

TEST_F(FileLoggerTest, HostileTextsSurvive) {
  const std::string percent = "100 % %s %n {} {0} {:x}";
  const std::string large(1 << 20, 'x');
  TavrelDDLog::log(false, percent, 15, 8, 0, "%s.cpp", "f<{}>", 1, "{}%d");
  log("first\nsecond\r\n\tthird");
  log(std::string_view("a\0b", 3));
  log("valid \xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80 broken \xFF \xC3 \xED\xA0\x80 \xF0\x9F");
  log(large);
  log("");
  TAVREL_LOG_INFO("%{}", "{} {}", percent, "\xFE");
  TavrelDDLog::flushLog();
  const std::string text = everything();
  EXPECT_THAT(text, HasSubstr("{}%d " + percent + " f<{}> %s.cpp:1"));
  EXPECT_THAT(text, HasSubstr("Tag first\nsecond\r\n\tthird Class::function"));
  EXPECT_NE(text.find(std::string_view("a\0b", 3)), std::string::npos);
  EXPECT_THAT(text, HasSubstr("valid \xC3\xA9\xE2\x82\xAC\xF0\x9F\x98\x80 broken \xEF\xBF\xBD \xEF\xBF\xBD "
                              "\xEF\xBF\xBD\xEF\xBF\xBD\xEF\xBF\xBD \xEF\xBF\xBD\xEF\xBF\xBD Class::function"));
  EXPECT_NE(text.find(" " + large + " Class::function"), std::string::npos);
  EXPECT_THAT(text, HasSubstr("%{} " + percent + " \xEF\xBF\xBD FileLoggerTest_HostileTextsSurvive_Test::TestBody"));
}

TEST_F(FileLoggerTest, HostileNamesSurvive) {
  char hostile[] = "100% %s {}\n\xFF 2026-01-01 00-00";
  char* const name = std::exchange(program_invocation_short_name, hostile);
  const std::filesystem::path directory = folder_.path() / "%s {0}\n\xFE";
  const auto manager = std::make_shared<TavrelDDLogFileManagerDefault>(directory);
  const auto logger = std::make_shared<TavrelDDFileLogger>(manager);
  manager->setMaximumNumberOfLogFiles(2);
  TavrelDDLog::addLogger(logger);
  for (int i = 0; i < 4; ++i) {
    log("text");
    logger->setMaximumFileSize(1);  // every further line is a file
  }
  const auto names = manager->sortedLogFileNames();
  const auto paths = manager->sortedLogFilePaths();
  program_invocation_short_name = name;
  ASSERT_EQ(names.size(), 2U);
  for (const std::string& each : names) EXPECT_EQ(each.find(std::string(hostile) + " 20"), 0U) << each;
  EXPECT_THAT(readText(paths[0]), ::testing::StartsWith("100% %s {}\n\xEF\xBF\xBD 2026-01-01 00-00["));
}

}  // namespace
}  // namespace tavrel
