#include <gtest/gtest.h>

#include <numbers>
#include <vector>

#include "TavrelCaptureBase.h"

namespace tavrel {
namespace {

using namespace std::chrono_literals;

class RecordingDelegate : public AnimationDelegate {
 public:
  void animationDidStop(const std::shared_ptr<Animation>&, bool finished) override { stops.push_back(finished); }
  std::vector<bool> stops;
};

std::shared_ptr<BasicAnimation> fade(double duration) {
  auto animation = std::make_shared<BasicAnimation>("opacity");
  animation->fromValue = 1;
  animation->toValue = 0;
  animation->setDuration(duration);
  return animation;
}

TEST(TimingFunction, followsItsBezierCurve) {
  // Worked out from the curve's parameter: x(t) and y(t) at t = 0.5, for instance 3·¼·½·0.42 + … for ease-in.
  EXPECT_NEAR(TimingFunction::linear().progressAt(0.3), 0.3, 1e-6);
  EXPECT_NEAR(TimingFunction::easeIn().progressAt(0.375 * 0.42 + 0.375 + 0.125), 0.5, 1e-6);
  EXPECT_NEAR(TimingFunction::easeOut().progressAt(0.375 * 0.58 + 0.125), 0.5, 1e-6);
  EXPECT_NEAR(TimingFunction::easeInEaseOut().progressAt(0.5), 0.5, 1e-6);
  for (const TimingFunction& function : {TimingFunction::easeIn(), TimingFunction::easeOut()}) {
    EXPECT_NEAR(function.progressAt(-1), 0, 1e-6);
    EXPECT_NEAR(function.progressAt(2), 1, 1e-6);
  }
}

TEST(BasicAnimation, fillsInWhatIsLeftOut) {
  struct Case {
    std::optional<double> from, by, to;
    double start, end;
  };
  // The layer's own value is 10.
  const Case cases[] = {{2, {}, 4, 2, 4},   {2, 5, {}, 2, 7},    {{}, 5, 9, 4, 9},     {2, {}, {}, 2, 10},
                        {{}, {}, 4, 10, 4}, {{}, 5, {}, 10, 15}, {1.8, 0.8, 1, 1.8, 1}};
  for (const Case& c : cases) {
    BasicAnimation animation("cornerRadius");
    animation.fromValue = c.from;
    animation.byValue = c.by;
    animation.toValue = c.to;
    animation.setDuration(1);
    animation.setFillMode(AnimationFillMode::forwards);
    for (const auto& [time, expected] :
         {std::pair(0.0, c.start), std::pair(0.5, (c.start + c.end) / 2), {1.0, c.end}}) {
      AnimatedValues values;
      values.cornerRadius = 10;
      animation.apply(time, 0, values);
      EXPECT_NEAR(values.cornerRadius, expected, 1e-6) << "at " << time;
    }
  }
  EXPECT_DEATH(BasicAnimation("transform.colour"), "no key path \"transform.colour\"");
}

TEST(AnimationGroup, runsItsMembersInItsTimeAndHoldsTheEnd) {
  auto scale = std::make_shared<BasicAnimation>("transform.scale");
  scale->fromValue = 1.8;
  scale->toValue = 1;
  scale->setTimingFunction(TimingFunction::easeOut());
  auto shortFade = fade(0.1);
  AnimationGroup group;
  group.setAnimations({scale, shortFade});
  group.setDuration(0.4);
  const auto valuesAt = [&](double time) {
    AnimatedValues values;
    group.apply(time, 0, values);
    return values;
  };
  EXPECT_NEAR(valuesAt(0).scaleX, 1.8, 1e-6);
  EXPECT_NEAR(valuesAt(0.2).scaleY, 1.8 - 0.8 * TimingFunction::easeOut().progressAt(0.5), 1e-6);
  EXPECT_NEAR(valuesAt(0.05).opacity, 0.5, 1e-6) << "a member's own duration counts";
  EXPECT_EQ(valuesAt(0.2).opacity, 1) << "a member that ended shows nothing";
  EXPECT_EQ(valuesAt(0.4).scaleX, 1) << "as if it were not there";

  group.setFillMode(AnimationFillMode::forwards);
  shortFade->setDuration(0);
  EXPECT_NEAR(valuesAt(0.4).opacity, 0, 1e-6);
  EXPECT_NEAR(valuesAt(99).opacity, 0, 1e-6);
}

TEST(AnimatedValues, takesTransformsApartAndTogether) {
  AnimatedValues values;
  const AffineTransform transform = AffineTransform::makeScale(2, -3)
                                        .concatenating(AffineTransform::makeRotation(std::numbers::pi / 6))
                                        .concatenating(AffineTransform::makeTranslation(5, 7));
  values.setTransform(transform);
  EXPECT_NEAR(values.scaleX, 2, 1e-9);
  EXPECT_NEAR(values.scaleY, -3, 1e-9);
  EXPECT_NEAR(values.rotation, std::numbers::pi / 6, 1e-9);
  const Point expected = transform.apply({11, 13});
  const Point point = values.transform().apply({11, 13});
  EXPECT_NEAR(point.x, expected.x, 1e-9);
  EXPECT_NEAR(point.y, expected.y, 1e-9);
}

TEST(LayerAnimation, endsByItselfAndLeavesTheLayerAlone) {
  const auto layer = std::make_shared<Layer>();
  const auto delegate = std::make_shared<RecordingDelegate>();
  auto animation = fade(0.08);
  animation->setDelegate(delegate);
  const double start = Layer::currentTime();
  layer->addAnimation(animation, "fade");
  const double latestStart = Layer::currentTime();
  EXPECT_TRUE(layer->isAnimating());
  const double halfway = layer->valuesAt(start + 0.04).opacity;
  EXPECT_GE(halfway, 0.5 - 1e-6);
  EXPECT_LE(halfway, 0.5 + (latestStart - start) / 0.08 + 1e-6);
  EXPECT_TRUE(RunLoop::main().runUntil([&] { return !delegate->stops.empty(); }, 5s));
  EXPECT_GE(Layer::currentTime() - start, 0.075);
  EXPECT_EQ(delegate->stops, std::vector<bool>{true});
  EXPECT_FALSE(layer->isAnimating());
  EXPECT_EQ(layer->animation("fade"), nullptr);
  EXPECT_EQ(layer->valuesAt(Layer::currentTime()).opacity, 1);
  EXPECT_EQ(layer->opacity(), 1);
}

TEST(LayerAnimation, keptOnesHoldTheirEndUntilRemovedWithoutASecondStop) {
  const auto layer = std::make_shared<Layer>();
  const auto delegate = std::make_shared<RecordingDelegate>();
  auto animation = fade(0.02);
  animation->setRemovedOnCompletion(false);
  animation->setFillMode(AnimationFillMode::forwards);
  animation->setDelegate(delegate);
  layer->addAnimation(animation, "fade");
  ASSERT_TRUE(RunLoop::main().runUntil([&] { return !delegate->stops.empty(); }, 5s));
  EXPECT_EQ(layer->animation("fade"), animation);
  EXPECT_NEAR(layer->valuesAt(Layer::currentTime()).opacity, 0, 1e-6);
  layer->removeAllAnimations();
  EXPECT_EQ(layer->valuesAt(Layer::currentTime()).opacity, 1);
  EXPECT_EQ(delegate->stops, std::vector<bool>{true});
}

TEST(LayerAnimation, interruptedOnesStopUnfinishedOnce) {
  const auto layer = std::make_shared<Layer>();
  const auto delegate = std::make_shared<RecordingDelegate>();
  for (int i = 0; i < 2; ++i) {  // the second replaces the first
    auto animation = fade(0.05);
    animation->setDelegate(delegate);
    layer->addAnimation(animation, "fade");
  }
  EXPECT_EQ(delegate->stops, std::vector<bool>{false});
  layer->removeAnimation("fade");
  EXPECT_EQ(delegate->stops, (std::vector<bool>{false, false}));
  RunLoop::main().runFor(100ms);
  EXPECT_EQ(delegate->stops.size(), 2U);
}

}  // namespace
}  // namespace tavrel
