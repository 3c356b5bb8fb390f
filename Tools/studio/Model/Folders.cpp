#include "Model/Folders.h"

#include <fmt/chrono.h>
#include <fmt/format.h>
#include <spawn.h>
#include <sys/wait.h>

#include <cstdlib>
#include <fstream>
#include <set>
#include <string_view>
#include <thread>

#include "Platform/Foundation/Environment.h"

extern char** environ;

namespace tavrel::studio {
namespace {

std::string variable(const char* name) { return std::string(environmentVariable(name).value_or("")); }

std::filesystem::path home() {
  const std::string folder = variable("HOME");
  return folder.empty() ? std::filesystem::current_path() : std::filesystem::path(folder);
}

std::filesystem::path configurationFolder() {
  const std::filesystem::path folder = variable("XDG_CONFIG_HOME");
  return folder.is_absolute() ? folder : home() / ".config";
}

/// "$HOME/Videos" or "/absolute" between the quotes of a line of user-dirs.dirs.
std::filesystem::path namedFolder(std::string_view line) {
  const std::size_t first = line.find('"');
  const std::size_t last = line.rfind('"');
  if (first == std::string_view::npos || last <= first + 1) return {};
  const std::string_view value = line.substr(first + 1, last - first - 1);
  constexpr std::string_view kHome = "$HOME/";
  if (value.starts_with(kHome)) return home() / value.substr(kHome.size());
  return value.front() == '/' ? std::filesystem::path(value) : std::filesystem::path();
}

}  // namespace

std::filesystem::path settingsFolder() { return configurationFolder() / "tavrel-studio"; }

std::filesystem::path userFolder(const std::string& name) {
  std::ifstream file(configurationFolder() / "user-dirs.dirs");
  const std::string key = "XDG_" + name + "_DIR=";
  for (std::string line; std::getline(file, line);) {
    if (!line.starts_with(key)) continue;
    if (auto folder = namedFolder(line); !folder.empty()) return folder;
  }
  return home() / (name == "VIDEOS" ? "Videos" : "Pictures");
}

std::filesystem::path newFile(const std::filesystem::path& folder, const std::string& extension, std::time_t time) {
  const std::string name = fmt::format("{:%Y-%m-%d %H-%M-%S}", fmt::localtime(time));
  static std::set<std::filesystem::path> given;  // some of these may not be written yet
  std::filesystem::path path = folder / (name + extension);
  std::error_code ignored;
  for (int i = 2; given.contains(path) || std::filesystem::exists(path, ignored); ++i) {
    path = folder / fmt::format("{} ({}){}", name, i, extension);
  }
  return *given.insert(path).first;
}

std::string shortName(const std::filesystem::path& path) {
  const std::string all = path.string();
  const std::string start = home().string() + "/";
  return start.size() > 1 && all.starts_with(start) ? "~/" + all.substr(start.size()) : all;
}

bool openWithDesktop(const std::filesystem::path& path) {
  std::string program = "xdg-open";
  std::string argument = path.string();
  char* arguments[] = {program.data(), argument.data(), nullptr};
  pid_t process = 0;
  if (posix_spawnp(&process, program.c_str(), nullptr, nullptr, arguments, environ) != 0) return false;
  // It may stay as long as what it opened.
  std::thread([process] { waitpid(process, nullptr, 0); }).detach();
  return true;
}

}  // namespace tavrel::studio
