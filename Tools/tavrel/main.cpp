#include <CLI/CLI.hpp>
#include <exception>

#include "FilterCommand.h"
#include "RecordCommand.h"
#include "Report.h"
#include "TavrelCaptureBase.h"

int main(int argc, char** argv) {
  CLI::App app("Record, filter and look through the camera.", "tavrel");
  app.set_version_flag("--version", TavrelCaptureBaseVersionString);
  app.require_subcommand(1);
  tavrel::tool::FilterCommand filter(app);
  tavrel::tool::RecordCommand record(app);
  try {
    app.parse(argc, argv);
    if (filter.isChosen()) return filter.run();
    return record.run();
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? tavrel::tool::kSuccess : tavrel::tool::kBadUsage;
  } catch (const tavrel::tool::UsageError& error) {
    tavrel::tool::say("{}", error.what());
    return tavrel::tool::kBadUsage;
  } catch (const std::exception& error) {
    tavrel::tool::say("{}", error.what());
    return tavrel::tool::kFailure;
  }
}
