#pragma once

#include <gtest/gtest.h>

#include <chrono>
#include <functional>
#include <memory>
#include <string>

#include "Support/UIVirtualScreen.h"

namespace tavrel::test {

using namespace std::chrono_literals;

/// How many renderbuffers the process asked GL for so far; with no picture composed off screen, those of preview views.
int displayRenderbuffersCreated();

/// A window of 160×120 points at (40, 30) on the process's virtual screen, with a preview view that fills it.
class WindowTest : public ::testing::Test {
 protected:
  static constexpr int kLeft = 40;
  static constexpr int kTop = 30;
  static constexpr int kWidth = 160;
  static constexpr int kHeight = 120;

  static UIVirtualScreen& screen() {
    static auto* const shared = new UIVirtualScreen(400, 300);
    static const bool isEnding = std::atexit([] { delete shared; }) == 0;
    static_cast<void>(isEnding);
    return *shared;
  }

  void SetUp() override {
    ASSERT_EQ(screen().failure(), "");
    ASSERT_TRUE(UIVirtualScreen::xdotool("version > /dev/null")) << "xdotool is not installed";
    auto created = Window::create("tavrel-test", {kWidth, kHeight});
    ASSERT_TRUE(created) << created.error().description;
    window = *created;
    view = std::make_shared<TavrelGPUImageView>(window->rootView()->bounds());
    view->setFillsSuperview(true);
    window->rootView()->addSubview(view);
    ASSERT_TRUE(RunLoop::main().runUntil([&] { return window->framesShown() > 0; }, 5s));
    ASSERT_TRUE(UIVirtualScreen::xdotool("search --sync --onlyvisible --name tavrel-test windowmove " +
                                         std::to_string(kLeft) + " " + std::to_string(kTop)));
    RunLoop::main().runFor(50ms);
  }

  /// Sends a picture to the view as a source would.
  void show(const Picture& source) const {
    const auto picture = std::make_shared<TavrelGPUImagePicture>(imageOf(source));
    picture->addTarget(view);
    picture->processImage();
    TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
    picture->removeAllTargets();
  }

  /// The window's part of the screen.
  Picture seen(int width = kWidth, int height = kHeight) const {
    const Picture all = screen().screenshot();
    return {width, height, [&](int x, int y) { return all.at(kLeft + x, kTop + y); }};
  }
  /// Looks at the window until it is right, for some seconds.
  bool becomes(const std::function<bool(const Picture&)>& isRight, int width = kWidth, int height = kHeight) const {
    for (int i = 0; i < 40; ++i) {
      RunLoop::main().runFor(40ms);
      if (isRight(seen(width, height))) return true;
    }
    return false;
  }
  static bool click(int x, int y) {
    return UIVirtualScreen::xdotool("mousemove " + std::to_string(kLeft + x) + " " + std::to_string(kTop + y) +
                                    " click 1");
  }
  static bool control(const std::string& command) {
    return UIVirtualScreen::xdotool("search --name tavrel-test " + command);
  }

  std::shared_ptr<Window> window;
  std::shared_ptr<TavrelGPUImageView> view;
};

}  // namespace tavrel::test
