// Consoles that take nothing, or not everything: they hold nobody up and say what they lost.
#include <fcntl.h>
#include <pty.h>
#include <sys/socket.h>
#include <termios.h>
#include <unistd.h>

#include <csignal>

#include "Platform/Foundation/ConsoleLog.h"
#include "Platform/Foundation/FatalAssertion.h"
#include "Support/LogTestSupport.h"

namespace tavrel {
namespace {

using test::count;
using ::testing::HasSubstr;
using ::testing::KilledBySignal;

constexpr unsigned kLimit = 120;  // seconds, for a process that would otherwise hang

int fullPipe(bool blocks) {
  int ends[2];
  if (pipe2(ends, O_NONBLOCK) != 0) _exit(1);
  while (write(ends[1], "x", 1) == 1) continue;
  if (blocks) fcntl(ends[1], F_SETFL, 0);
  return ends[1];
}

/// Consoles that take nothing, each of its own kind.
const std::pair<const char*, int (*)()> kConsoles[] = {
    {"FullPipe", [] { return fullPipe(true); }},
    {"FullPipeThatDoesNotBlock", [] { return fullPipe(false); }},
    {"BrokenPipe",
     [] {
       int ends[2];
       if (pipe(ends) == 0) close(ends[0]);
       return ends[1];
     }},
    {"FullSocket",
     [] {
       int ends[2];
       if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) != 0) _exit(1);
       while (send(ends[1], "x", 1, MSG_DONTWAIT) == 1) continue;
       return ends[1];
     }},
    {"ClosedSocket",
     [] {
       int ends[2];
       if (socketpair(AF_UNIX, SOCK_STREAM, 0, ends) == 0) close(ends[0]);
       return ends[1];
     }},
    {"StoppedTerminal",
     [] {
       int terminal = -1;
       int client = -1;
       if (openpty(&terminal, &client, nullptr, nullptr, nullptr) != 0 || tcflow(client, TCOOFF) != 0) _exit(1);
       return client;
     }},
    {"Closed", [] { return -1; }},
    {"FullDisk", [] { return open("/dev/full", O_WRONLY); }},
};

class StuckConsoleTest : public ::testing::TestWithParam<std::pair<const char*, int (*)()>> {};

TEST_P(StuckConsoleTest, HoldsNobodyUp) {
  const auto log = [] {
    alarm(kLimit);
    const int console = GetParam().second();
    close(STDERR_FILENO);
    if (console >= 0) dup2(console, STDERR_FILENO);
    for (int i = 0; i < 3000; ++i) TAVREL_LOG_INFO("Tag", "number {}", i);
    for (int i = 0; i < 10; ++i) TAVREL_LOG_ERROR("Tag", "error {}", i);
    for (int i = 0; i < 3000; ++i) ConsoleLog::write("number {}", i);
    fatalAssertion("the end");
  };
  EXPECT_EXIT(log(), KilledBySignal(SIGABRT), "");
}

INSTANTIATE_TEST_SUITE_P(Consoles, StuckConsoleTest, ::testing::ValuesIn(kConsoles),
                         [](const auto& way) { return std::string(way.param.first); });

TEST(ConsoleWriterTest, AConsoleThatTakesLinesAgainSaysWhatWasLost) {
  int ends[2];
  ASSERT_EQ(pipe(ends), 0);
  const auto logger = std::make_shared<TavrelDDTTYLogger>(ends[1]);
  const std::string filler(400, 'x');
  const auto line = [&](int i) {
    logger->logMessage(TavrelDDLogMessage(filler, 1, 1, 0, "f.cpp", "f", 1, fmt::format("<{}>", i)));
    logger->finishHandOver();
  };
  for (int i = 0; i < 1000; ++i) line(i);  // more than a pipe holds
  std::string text;
  char bytes[65536];
  text.append(bytes, static_cast<std::size_t>(read(ends[0], bytes, sizeof bytes)));
  line(1000);
  close(ends[1]);
  for (ssize_t more = 0; (more = read(ends[0], bytes, sizeof bytes)) > 0;)
    text.append(bytes, static_cast<std::size_t>(more));
  close(ends[0]);
  EXPECT_THAT(text, HasSubstr("<1000>: "));
  const auto whole = count(text, filler + "\n");
  EXPECT_EQ(whole, count(text, "[E] <"));
  EXPECT_THAT(text, HasSubstr(fmt::format("\n({} lines were lost here: nobody took them)\n", 1001 - whole)));
}

}  // namespace
}  // namespace tavrel
