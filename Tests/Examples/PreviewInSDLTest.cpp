#include <future>
#include <regex>
#include <thread>

#include "Support/UIVirtualScreen.h"
#include "Tools/tavrel/ProgramTestSupport.h"

namespace tavrel {
namespace {

using test::CommandResult;
using test::Picture;
using test::Pixel;
using test::UIVirtualScreen;

TEST(ExampleWindowTest, previewInSDL) {
  const UIVirtualScreen screen(740, 560);
  ASSERT_EQ(screen.failure(), "");
  auto running = std::async(
      std::launch::async, [] { return test::shell("env TAVREL_CAPTURE=virtual " TAVREL_EXAMPLES "PreviewInSDL 60"); });
  ASSERT_TRUE(UIVirtualScreen::xdotool("search --sync --onlyvisible --name '^Preview$' windowmove 50 40 windowfocus"));
  // The face of the virtual scene, in the colours of skin, and what is around it.
  const auto isRight = [](const Picture& picture) {
    const Pixel face = picture.at(50 + 320, 40 + 260);
    const Pixel sky = picture.at(50 + 600, 40 + 120);
    return face.r > face.g && face.g > face.b && face.r > 180 && sky.b > sky.g;
  };
  bool isSeen = false;
  for (int i = 0; i < 200 && !isSeen; ++i) {
    isSeen = isRight(screen.screenshot());
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  EXPECT_TRUE(isSeen);
  ASSERT_TRUE(UIVirtualScreen::xdotool("mousemove 300 250 click 1 key q"));
  const CommandResult result = running.get();
  EXPECT_EQ(result.status, 0) << result.output;
  EXPECT_TRUE(std::regex_search(result.output, std::regex("[1-9][0-9]* frames shown"))) << result.output;
}

}  // namespace
}  // namespace tavrel
