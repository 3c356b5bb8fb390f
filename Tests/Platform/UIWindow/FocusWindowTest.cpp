#include <SDL.h>

#include <algorithm>
#include <cmath>
#include <functional>

#include "WindowTestSupport.h"

namespace tavrel::test {
namespace {

/// Centre, mean radius and strength of what is brighter than black.
struct Ring {
  Point centre;
  double radius = 0;
  int strongest = 0;
};

Ring ringIn(const Picture& picture) {
  Ring ring;
  double weight = 0;
  const auto forEach = [&](const std::function<void(double x, double y, double value)>& use) {
    for (int y = 0; y < picture.height; ++y) {
      for (int x = 0; x < picture.width; ++x) {
        if (picture.at(x, y).g > 8) use(x + 0.5, y + 0.5, picture.at(x, y).g);
      }
    }
  };
  forEach([&](double x, double y, double value) {
    ring.centre = {ring.centre.x + x * value, ring.centre.y + y * value};
    weight += value;
    ring.strongest = std::max(ring.strongest, static_cast<int>(value));
  });
  if (weight == 0) return ring;
  ring.centre = {ring.centre.x / weight, ring.centre.y / weight};
  forEach([&](double x, double y, double value) {
    ring.radius += std::hypot(x - ring.centre.x, y - ring.centre.y) * value / weight;
  });
  return ring;
}

class FocusWindowTest : public WindowTest {
 protected:
  void SetUp() override {
    WindowTest::SetUp();
    if (IsSkipped() || HasFatalFailure()) return;
    ring = std::make_shared<TavrelFocusView>(Rect{{0, 0}, {50, 50}});
    view->addSubview(ring);
    view->addGestureRecognizer(std::make_shared<TapGestureRecognizer>(
        [this](TapGestureRecognizer& tap) { ring->show(tap.locationInView(view.get())); }));
    show(Picture(8, 8, [](int, int) { return Pixel{0, 0, 0, 255}; }));
    RunLoop::main().runFor(50ms);
  }
  bool waitFor(bool animEnd) {
    return RunLoop::main().runUntil([&] { return ring->animEnd() == animEnd; }, 5s);
  }
  /// The ring as it is seen `seconds` after a click at (x, y). Clicks again when a busy machine looked too late for it.
  Ring ringAfter(int x, int y, double seconds, int weakest) {
    Ring found;
    for (int attempt = 0; attempt < 5 && found.strongest <= weakest; ++attempt) found = ringOnce(x, y, seconds);
    return found;
  }
  Ring ringOnce(int x, int y, double seconds) {
    EXPECT_TRUE(click(x, y));
    EXPECT_TRUE(waitFor(false));
    const double start = Layer::currentTime();
    const auto shown = window->framesShown();
    RunLoop::main().runUntil([&] { return Layer::currentTime() - start >= seconds && window->framesShown() > shown; },
                             5s);
    const Ring found = ringIn(seen());
    EXPECT_TRUE(waitFor(true));
    return found;
  }

  std::shared_ptr<TavrelFocusView> ring;
};

TEST_F(FocusWindowTest, aClickShowsTheRingThereShrinkingAndFading) {
  const Ring early = ringAfter(60, 50, 0.02, 130);
  EXPECT_NEAR(early.centre.x, 60.5, 1);
  EXPECT_NEAR(early.centre.y, 50.5, 1);
  EXPECT_GT(early.radius, 28);
  EXPECT_LE(early.radius, 24.5 * 1.8 + 1);
  EXPECT_GT(early.strongest, 130);

  const Ring late = ringAfter(110, 70, 0.2, 8);
  EXPECT_NEAR(late.centre.x, 110.5, 1);
  EXPECT_NEAR(late.centre.y, 70.5, 1);
  EXPECT_LT(late.radius, early.radius - 1);
  EXPECT_GE(late.radius, 23.5);
  EXPECT_LT(late.strongest, early.strongest - 20);

  EXPECT_TRUE(becomes([](const Picture& picture) { return ringIn(picture).strongest == 0; })) << "gone at the end";
}

TEST_F(FocusWindowTest, aSecondClickDuringTheRingIsIgnored) {
  ASSERT_TRUE(UIVirtualScreen::xdotool("mousemove " + std::to_string(kLeft + 60) + " " + std::to_string(kTop + 50) +
                                       " click 1 mousemove " + std::to_string(kLeft + 110) + " " +
                                       std::to_string(kTop + 70) + " click 1"));
  ASSERT_TRUE(waitFor(false));
  RunLoop::main().runFor(100ms);
  EXPECT_EQ(ring->center(), (Point{60.5, 50.5}));
  ASSERT_TRUE(waitFor(true));
  ASSERT_TRUE(click(110, 70));
  ASSERT_TRUE(waitFor(false));
  EXPECT_EQ(ring->center(), (Point{110.5, 70.5}));
  EXPECT_TRUE(waitFor(true));
}

TEST_F(FocusWindowTest, aFingerTapsOnceAndIsNoMouseAsWell) {
  int taps = 0;
  view->addGestureRecognizer(std::make_shared<TapGestureRecognizer>([&](TapGestureRecognizer&) { ++taps; }));
  SDL_Event event{};
  event.tfinger.windowID = SDL_GetWindowID(SDL_GetGrabbedWindow());
  for (std::uint32_t identifier = 1; identifier < 100; ++identifier) {
    SDL_Window* const candidate = SDL_GetWindowFromID(identifier);
    if (candidate && std::string(SDL_GetWindowTitle(candidate)) == "tavrel-test") event.tfinger.windowID = identifier;
  }
  event.tfinger.fingerId = 5;
  event.tfinger.x = 0.25F;
  event.tfinger.y = 0.5F;
  for (const std::uint32_t type : {SDL_FINGERDOWN, SDL_FINGERUP}) {
    event.type = type;
    ASSERT_EQ(SDL_PushEvent(&event), 1);
  }
  ASSERT_TRUE(waitFor(false));
  EXPECT_EQ(ring->center(), (Point{40, 60}));
  EXPECT_EQ(taps, 1);
  EXPECT_TRUE(waitFor(true));
}

}  // namespace
}  // namespace tavrel::test
