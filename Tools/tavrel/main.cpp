#include <CLI/CLI.hpp>
#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <exception>
#include <iterator>
#include <system_error>

#include "Command.h"
#include "Report.h"
#include "TavrelCaptureBase.h"

namespace {

/// What matters to a person is said by the commands themselves; the library's own messages are for those who ask.
void chooseLibraryMessages(bool areShown) {
  if (!areShown) {
    tavrel::TavrelLogger::setLogLevel(0);
    tavrel::ConsoleLog::setSink([](std::string_view) {});
    return;
  }
  tavrel::TavrelLogger::setLogLevel(5);
  const auto& console = tavrel::TavrelDDTTYLogger::sharedInstance();
  tavrel::TavrelDDLog::removeLogger(console);  // it is there with the level of the start
  tavrel::TavrelDDLog::addLogger(console, tavrel::TavrelDDLogLevelVerbose);
}

int run(int argc, char** argv) {
  CLI::App app("Record the camera, and filter pictures and movies.", "tavrel");
  app.set_version_flag("--version", TavrelCaptureBaseVersionString);
  app.require_subcommand(1);
  bool isVerbose = false;
  app.add_flag("--verbose", isVerbose, "Show the library's own messages");
  const std::unique_ptr<tavrel::tool::Command> commands[] = {
      tavrel::tool::makeCameraCommand(app), tavrel::tool::makeDevicesCommand(app),
      tavrel::tool::makeFilterCommand(app), tavrel::tool::makePreviewCommand(app),
      tavrel::tool::makeRecordCommand(app), tavrel::tool::makeTranscodeCommand(app)};
  try {
    app.parse(argc, argv);
    chooseLibraryMessages(isVerbose);
    const auto* const chosen =
        std::find_if(std::begin(commands), std::end(commands), [](const auto& command) { return command->isChosen(); });
    return (*chosen)->run();
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? tavrel::tool::kSuccess : tavrel::tool::kBadUsage;
  } catch (const tavrel::tool::UsageError& error) {
    tavrel::tool::say("{}", error.what());
    return tavrel::tool::kBadUsage;
  }
}

}  // namespace

int main(int argc, char** argv) {
  try {
    const int status = run(argc, argv);
    if (std::fflush(stdout) == 0) return status;
    tavrel::tool::say("standard output cannot be written: {}", std::generic_category().message(errno));
  } catch (const std::exception& error) {
    // Not by `say`, which may throw.
    std::fprintf(stderr, "tavrel: %s\n", error.what());
  }
  return tavrel::tool::kFailure;
}
