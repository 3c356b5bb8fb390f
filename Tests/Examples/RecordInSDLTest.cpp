#include <future>
#include <thread>

#include "Support/GraphTestSupport.h"
#include "Support/UIVirtualScreen.h"
#include "Tools/tavrel/ProgramTestSupport.h"

namespace tavrel {
namespace {

using test::CommandResult;
using test::Pixel;
using test::UIVirtualScreen;

class ExampleRecordingTest : public test::ProgramTest {};

TEST_F(ExampleRecordingTest, showsWhatItRecords) {
  const UIVirtualScreen screen(740, 560);
  ASSERT_EQ(screen.failure(), "");
  const test::Picture red(8, 8, [](int, int) { return Pixel{255, 0, 0, 255}; });
  ASSERT_TRUE(ImageDestination::write(test::imageOf(red), file("red.png")).has_value());
  auto running = std::async(std::launch::async, [this] {
    return test::shell("env TAVREL_CAPTURE=virtual " TAVREL_EXAMPLES "RecordWithEffects " + file("a.mov") + " 8 " +
                       file("red.png"));
  });
  ASSERT_TRUE(UIVirtualScreen::xdotool("search --sync --onlyvisible --name '^Recording$' windowmove 50 40"));
  // The preview of the front camera is a mirror: the sticker is at the right.
  bool isSeen = false;
  for (int i = 0; i < 300 && !isSeen; ++i) {
    const Pixel pixel = screen.screenshot().at(50 + 640 - 80, 40 + 80);
    isSeen = pixel.r > 240 && pixel.g < 15 && pixel.b < 15;
    std::this_thread::sleep_for(std::chrono::milliseconds(20));
  }
  EXPECT_TRUE(isSeen);
  const CommandResult result = running.get();
  EXPECT_EQ(result.status, 0) << result.output;
}

}  // namespace
}  // namespace tavrel
