#include "Capture/Video/TavrelFocusView.h"

#include <gtest/gtest.h>

#include <cmath>

#include "Support/GraphTestSupport.h"

namespace tavrel::test {
namespace {

using namespace std::chrono_literals;

class TavrelFocusViewTest : public ::testing::Test {
 protected:
  TavrelFocusViewTest() { root->addSubview(view); }
  bool waitForEnd() {
    return RunLoop::main().runUntil([&] { return view->animEnd(); }, 5s);
  }
  Picture seenAt(double time) {
    Compositor compositor;
    return pictureOf(*compositor.imageOf(*root, {.time = time}).value());
  }

  std::shared_ptr<View> root = std::make_shared<View>(Rect{{0, 0}, {200, 120}});
  std::shared_ptr<TavrelFocusView> view = std::make_shared<TavrelFocusView>(Rect{{0, 0}, {50, 50}});
};

/// The radius of the ring about `centre` and its strength, from what is lit.
std::pair<double, double> ringIn(const Picture& picture, Point centre) {
  double weight = 0;
  double radius = 0;
  double most = 0;
  for (int y = 0; y < picture.height; ++y) {
    for (int x = 0; x < picture.width; ++x) {
      const double alpha = picture.at(x, y).a / 255.0;
      weight += alpha;
      radius += alpha * std::hypot(x + 0.5 - centre.x, y + 0.5 - centre.y);
      most = std::max(most, alpha);
    }
  }
  return {weight > 0 ? radius / weight : 0, most};
}

TEST_F(TavrelFocusViewTest, startsHiddenAsAWhiteRing) {
  EXPECT_TRUE(view->isHidden());
  EXPECT_TRUE(view->animEnd());
  EXPECT_EQ(view->layer()->borderColor(), Color::white());
  EXPECT_EQ(view->layer()->borderWidth(), 1);
  EXPECT_EQ(view->layer()->cornerRadius(), 25);
  EXPECT_EQ(view->backgroundColor(), Color::clear());
  EXPECT_EQ(ringIn(seenAt(Layer::currentTime()), {}).second, 0);
}

TEST_F(TavrelFocusViewTest, shrinksAndFadesAboutThePoint) {
  const double before = Layer::currentTime();
  view->show({100, 60});
  const double start = Layer::currentTime();
  const double uncertainty = (start - before) / 0.3;  // of the progress, on a busy machine
  EXPECT_FALSE(view->isHidden());
  struct Moment {
    double time;
    double radius;
    double opacity;
  };
  // The middle of the line lies half a point inside the radius; ease-out is at 0.6846 after half the time.
  const double halfway = TimingFunction::easeOut().progressAt(0.5);
  EXPECT_NEAR(halfway, 0.6846, 1e-3);
  for (const Moment& moment :
       {Moment{0.001, 24.5 * 1.8, 1}, {0.15, 24.5 * (1.8 - 0.8 * halfway), 0.5}, {0.299, 24.5, 0}}) {
    const auto [radius, opacity] = ringIn(seenAt(start + moment.time), {100, 60});
    EXPECT_NEAR(opacity, moment.opacity, 0.05 + uncertainty) << moment.time;
    if (opacity > 0.01) {
      EXPECT_NEAR(radius, moment.radius, 0.5 + 40 * uncertainty) << moment.time;
    }
  }
  EXPECT_TRUE(waitForEnd());
  EXPECT_GE(Layer::currentTime() - start, 0.29);
}

TEST_F(TavrelFocusViewTest, ignoresTapsWhileItIsShownAndCanBeShownAgain) {
  view->show({30, 40});
  const double start = Layer::currentTime();
  RunLoop::main().runFor(100ms);
  view->show({150, 80});
  EXPECT_EQ(view->center(), (Point{30, 40}));
  EXPECT_NEAR(view->layer()->valuesAt(start + 0.301).opacity, 0, 1e-6) << "not started anew";
  ASSERT_TRUE(waitForEnd());
  EXPECT_TRUE(view->isHidden());
  EXPECT_EQ(view->alpha(), 0);
  EXPECT_FALSE(view->layer()->isAnimating());

  view->show({150, 80});
  EXPECT_EQ(view->center(), (Point{150, 80}));
  EXPECT_FALSE(view->isHidden());
  EXPECT_GT(ringIn(seenAt(Layer::currentTime()), {150, 80}).second, 0.5) << "visible though the view's own alpha is 0";
  EXPECT_TRUE(waitForEnd());
  EXPECT_TRUE(view->isHidden());
}

TEST_F(TavrelFocusViewTest, anInterruptedAnimationLeavesItAsItIs) {
  view->show({30, 40});
  view->layer()->removeAllAnimations();
  RunLoop::main().runFor(350ms);
  EXPECT_FALSE(view->isHidden());
  EXPECT_FALSE(view->animEnd());
}

TEST_F(TavrelFocusViewTest, isNotKeptAliveByItsAnimation) {
  view->show({30, 40});
  const std::shared_ptr<TavrelFocusViewAnimation> animation = view->focusViewAnimation();
  const std::weak_ptr<TavrelFocusView> weak = view;
  view->removeFromSuperview();
  view.reset();
  EXPECT_TRUE(weak.expired());
  EXPECT_EQ(animation->delegate(), nullptr);
  RunLoop::main().runFor(350ms);
}

}  // namespace
}  // namespace tavrel::test
