#include "RunningStudio.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <chrono>
#include <cmath>
#include <csignal>
#include <filesystem>
#include <fstream>
#include <thread>

namespace tavrel::test {
namespace {

constexpr auto kStep = std::chrono::milliseconds(20);
constexpr int kSteps = 30'000 / 20;

std::string at(Point point) {
  return std::to_string(std::lround(std::floor(point.x))) + " " + std::to_string(std::lround(std::floor(point.y)));
}

}  // namespace

RunningStudio::RunningStudio(const std::string& folder, const std::vector<std::string>& arguments,
                             const std::vector<std::string>& environment)
    : stateFile_(folder + "/state.json") {
  std::filesystem::remove(stateFile_);  // of one that ran here before
  std::vector<std::string> words = {"env", "HOME=" + folder, "XDG_CONFIG_HOME=" + folder,
                                    "TAVREL_STUDIO_STATE=" + stateFile_};
  words.insert(words.end(), environment.begin(), environment.end());
  words.emplace_back(TAVREL_STUDIO_PROGRAM);
  words.insert(words.end(), arguments.begin(), arguments.end());
  process_ = fork();
  if (process_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);
    std::vector<char*> all;
    for (std::string& word : words) all.push_back(word.data());
    all.push_back(nullptr);
    execvp("env", all.data());
    _exit(127);
  }
  // Without a window manager, a window has the keyboard when it is given it.
  const bool isOnX11 = std::ranges::none_of(
      environment, [](const std::string& variable) { return variable.starts_with("WAYLAND_DISPLAY"); });
  if (shows("picture") && isOnX11) {
    EXPECT_TRUE(UIVirtualScreen::xdotool("search --sync --onlyvisible --name '" + std::string(kTitle) +
                                         "' windowfocus --sync"));
  }
}

RunningStudio::~RunningStudio() {
  if (process_ <= 0) return;
  kill(process_, SIGKILL);
  waitpid(process_, nullptr, 0);
}

nlohmann::json RunningStudio::state() const {
  std::ifstream stream(stateFile_);
  return nlohmann::json::parse(stream, nullptr, false);
}

bool RunningStudio::becomes(const std::function<bool(const nlohmann::json&)>& isRight) const {
  for (int i = 0; i < kSteps; ++i) {
    const nlohmann::json now = state();
    if (now.is_object() && isRight(now)) return true;
    std::this_thread::sleep_for(kStep);
  }
  ADD_FAILURE() << "the window shows " << state().dump();
  return false;
}

bool RunningStudio::shows(const std::string& widget) const {
  return becomes([&](const nlohmann::json& now) { return now["widgets"].contains(widget); });
}

Rect RunningStudio::placeOf(const std::string& widget) const {
  if (!shows(widget)) return {};
  const auto place = state()["widgets"][widget];
  return {{place[0], place[1]}, {place[2], place[3]}};
}

Point RunningStudio::onScreen(Point point) const {
  const auto window = state()["window"];
  return {point.x + window[0].get<double>(), point.y + window[1].get<double>()};
}

bool RunningStudio::click(const std::string& widget) const {
  const Rect place = placeOf(widget);
  return UIVirtualScreen::xdotool("mousemove " + at(onScreen({place.midX(), place.midY()})) + " click 1");
}

bool RunningStudio::drag(Point from, Point to) const {
  const Point half = {(from.x + to.x) / 2, (from.y + to.y) / 2};
  return UIVirtualScreen::xdotool("mousemove " + at(onScreen(from)) + " mousedown 1 mousemove " + at(onScreen(half)) +
                                  " mousemove " + at(onScreen(to)) + " mouseup 1");
}

int RunningStudio::exitStatus() {
  int status = 0;
  for (int i = 0; i < kSteps; ++i) {
    if (waitpid(process_, &status, WNOHANG) == process_) {
      process_ = -1;
      return WIFEXITED(status) ? WEXITSTATUS(status) : 128 + WTERMSIG(status);
    }
    std::this_thread::sleep_for(kStep);
  }
  return -1;
}

}  // namespace tavrel::test
