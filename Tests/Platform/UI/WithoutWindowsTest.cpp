#include <gtest/gtest.h>

#include "TavrelCaptureBase.h"

namespace tavrel {
namespace {

TEST(WithoutWindowsTest, saysThatThereAreNoneAndTheRestWorks) {
  EXPECT_FALSE(Application::shared().startUserInterface());
  const auto window = Window::create("refused", {100, 100});
  ASSERT_FALSE(window);
  EXPECT_EQ(window.error().domain, "ui");
  EXPECT_NE(window.error().description.find("built without windows"), std::string::npos) << window.error().description;
  Compositor compositor;
  View view(Rect{{0, 0}, {4, 4}});
  EXPECT_TRUE(compositor.imageOf(view));
}

}  // namespace
}  // namespace tavrel
