// A window in which people record their camera with effects.
#include <CLI/CLI.hpp>
#include <cstdio>
#include <exception>
#include <filesystem>
#include <string>
#include <vector>

#include "Model/Folders.h"
#include "Model/Studio.h"
#include "Window/StudioApplication.h"
#include "Window/StudioWindow.h"

namespace {

using namespace tavrel;
using namespace tavrel::studio;

constexpr int kFailure = 1;
constexpr int kBadUsage = 2;

int fail(const std::string& reason) {
  std::fprintf(stderr, "tavrel-studio: %s\n", reason.c_str());
  return kFailure;
}

/// Problems are said in the window; the library's own messages are for those who ask.
void chooseLibraryMessages(bool areShown) {
  TavrelLogger::setLogLevel(areShown ? 5 : 0);
  if (!areShown) ConsoleLog::setSink([](std::string_view) {});
}

int run(int argc, char** argv) {
  CLI::App app("Record the camera with effects, in a window.", "tavrel-studio");
  app.set_version_flag("--version", TavrelCaptureBaseVersionString);
  std::string camera;
  bool isVerbose = false;
  std::vector<std::filesystem::path> files;
  app.add_option("--camera", camera, "A name shown by `tavrel devices`, front, back or file:PATH")->type_name("NAME");
  app.add_flag("--verbose", isVerbose, "Show the library's own messages");
  app.add_option("FILES", files, "Pictures, animations and tables to begin with")->check(CLI::ExistingFile);
  try {
    app.parse(argc, argv);
  } catch (const CLI::ParseError& error) {
    return app.exit(error) == 0 ? 0 : kBadUsage;
  }
  chooseLibraryMessages(isVerbose);
  // First of all: pictures can be shown in it only if the library draws on its display.
  const auto file = settingsFolder() / "settings.json";
  auto window = StudioWindow::open("Tavrel Studio", Settings::load(file).value_or(Settings()).windowSize);
  if (!window) return fail("there is no window: " + window.error().description);
  Studio studio(file);
  if (!camera.empty()) studio.settings().camera = camera;
  StudioApplication application(std::move(*window), studio);
  const auto done = application.run(files);
  studio.close();
  return done ? 0 : fail(done.error().description);
}

}  // namespace

int main(int argc, char** argv) {
  try {
    return run(argc, argv);
  } catch (const std::exception& error) {
    return fail(error.what());
  }
}
