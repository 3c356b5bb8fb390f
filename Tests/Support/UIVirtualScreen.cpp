#include "Support/UIVirtualScreen.h"

#include <fcntl.h>
#include <gtest/gtest.h>
#include <poll.h>
#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <array>
#include <cstdlib>
#include <filesystem>

namespace tavrel::test {
namespace {

/// The number that the server writes when it is ready; empty when it writes none within ten seconds.
std::string readDisplayNumber(int descriptor) {
  std::string text;
  pollfd waiting = {descriptor, POLLIN, 0};
  while (text.find('\n') == std::string::npos && poll(&waiting, 1, 10'000) == 1) {
    std::array<char, 16> chunk{};
    const ssize_t count = read(descriptor, chunk.data(), chunk.size());
    if (count <= 0) break;
    text.append(chunk.data(), static_cast<std::size_t>(count));
  }
  return text.substr(0, text.find('\n'));
}

}  // namespace

UIVirtualScreen::UIVirtualScreen(int width, int height) : width_(width), height_(height) {
  int ends[2] = {-1, -1};
  if (pipe2(ends, 0) != 0) {
    failure_ = "no pipe";
    return;
  }
  const std::string descriptor = std::to_string(ends[1]);
  const std::string mode = std::to_string(width) + "x" + std::to_string(height) + "x24";
  process_ = fork();
  if (process_ == 0) {
    prctl(PR_SET_PDEATHSIG, SIGTERM);  // also when the test program is killed
    close(ends[0]);
    const int silence = open("/dev/null", O_RDWR);
    dup2(silence, STDERR_FILENO);
    execlp("Xvfb", "Xvfb", "-displayfd", descriptor.c_str(), "-screen", "0", mode.c_str(), "-nolisten", "tcp",
           "-noreset", nullptr);
    _exit(127);
  }
  close(ends[1]);
  const std::string number = process_ > 0 ? readDisplayNumber(ends[0]) : "";
  close(ends[0]);
  if (number.empty()) {
    failure_ = "Xvfb could not be started (package xvfb)";
    return;
  }
  setVariable("DISPLAY", (":" + number).c_str());
  setVariable("WAYLAND_DISPLAY", nullptr);
  setVariable("SDL_VIDEODRIVER", "x11");
}

void UIVirtualScreen::setVariable(const char* name, const char* value) {
  const char* const earlier = getenv(name);
  earlierVariables_[name] = earlier ? std::optional<std::string>(earlier) : std::nullopt;
  if (value) {
    setenv(name, value, 1);
  } else {
    unsetenv(name);
  }
}

UIVirtualScreen::~UIVirtualScreen() {
  for (const auto& [name, value] : earlierVariables_) {
    if (value) {
      setenv(name.c_str(), value->c_str(), 1);
    } else {
      unsetenv(name.c_str());
    }
  }
  if (process_ <= 0) return;
  kill(process_, SIGTERM);
  waitpid(process_, nullptr, 0);
}

Picture UIVirtualScreen::screenshot() const {
  const std::filesystem::path file = testing::TempDir() + "/screen-" + std::to_string(getpid()) + ".rgba";
  const std::string command = "import -silent -window root -depth 8 rgba:'" + file.string() + "'";
  if (std::system(command.c_str()) != 0) ADD_FAILURE() << command << " failed (package imagemagick)";
  const auto bytes = readFile(file);
  std::filesystem::remove(file);
  if (!bytes || bytes->size() != static_cast<std::size_t>(width_ * height_ * 4)) {
    ADD_FAILURE() << "no screenshot of the screen's size";
    return {};
  }
  return {width_, height_, [&](int x, int y) {
            const std::uint8_t* const p = bytes->data() + static_cast<std::size_t>((y * width_ + x) * 4);
            return Pixel{p[0], p[1], p[2], 255};
          }};
}

bool UIVirtualScreen::xdotool(const std::string& arguments) {
  // What it waits for may never come.
  return std::system(("timeout 20 xdotool " + arguments).c_str()) == 0;
}

}  // namespace tavrel::test
