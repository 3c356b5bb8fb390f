#include <gtest/gtest.h>

#include "TavrelCaptureBase.h"

namespace tavrel {
namespace {

/// Exit status 42 when a window is refused with a text that holds `expected`.
[[noreturn]] void askForWindow(const char* expected, bool useGraphFirst) {
  if (useGraphFirst) static_cast<void>(TavrelGPUImageContext::maximumTextureSizeForThisDevice());
  const auto window = Window::create("refused", {100, 100});
  if (!window) fprintf(stderr, "%s\n", window.error().description.c_str());
  const bool isSaid = !window && window.error().description.find(expected) != std::string::npos;
  // The rest goes on without a window.
  Compositor compositor;
  View view(Rect{{0, 0}, {4, 4}});
  std::exit(isSaid && compositor.imageOf(view) ? 42 : 1);
}

TEST(WindowDeathTest, isRefusedWithAReasonAndTheRestWorksWithoutOne) {
  unsetenv("DISPLAY");
  unsetenv("WAYLAND_DISPLAY");
  unsetenv("SDL_VIDEODRIVER");
  EXPECT_EXIT(askForWindow("no window system can be reached: DISPLAY or WAYLAND_DISPLAY must", false),
              ::testing::ExitedWithCode(42), "");
  setenv("SDL_VIDEODRIVER", "x11", 1);
  EXPECT_EXIT(askForWindow("DISPLAY or WAYLAND_DISPLAY must name a running one", false), ::testing::ExitedWithCode(42),
              "");
  EXPECT_EXIT(askForWindow("before the first use of the graph", true), ::testing::ExitedWithCode(42), "");
  setenv("TAVREL_DISPLAY", "headless", 1);
  EXPECT_EXIT(askForWindow("TAVREL_DISPLAY=headless", false), ::testing::ExitedWithCode(42), "");
  unsetenv("TAVREL_DISPLAY");
  setenv("SDL_VIDEODRIVER", "dummy", 1);
  EXPECT_EXIT(askForWindow("gives no OpenGL ES 2.0", false), ::testing::ExitedWithCode(42), "");
  unsetenv("SDL_VIDEODRIVER");
}

}  // namespace
}  // namespace tavrel
