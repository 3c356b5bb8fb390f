#include <gtest/gtest.h>

#include <numbers>

#include "TavrelCaptureBase.h"

namespace tavrel {
namespace {

class CountingView : public View {
 public:
  using View::View;
  void layoutSubviews() override { ++layouts; }
  int layouts = 0;
};

TEST(View, laysOutOncePerChangeOfSizeAndFillsItsSuperview) {
  const auto root = std::make_shared<View>(Rect{{0, 0}, {100, 50}});
  const auto child = std::make_shared<CountingView>();
  root->addSubview(child);
  child->setFillsSuperview(true);
  root->layoutIfNeeded();
  root->layoutIfNeeded();
  EXPECT_EQ(child->layouts, 1);
  EXPECT_EQ(child->frame(), root->bounds());
  root->setFrame({{10, 10}, {100, 50}});
  root->layoutIfNeeded();
  EXPECT_EQ(child->layouts, 1) << "moved, not resized";
  root->setFrame({{0, 0}, {60, 80}});
  root->layoutIfNeeded();
  EXPECT_EQ(child->layouts, 2);
  EXPECT_EQ(child->bounds().size, (Size{60, 80}));
}

TEST(View, keepsItsTreeConsistent) {
  const auto first = std::make_shared<View>();
  const auto second = std::make_shared<View>();
  auto child = std::make_shared<View>();
  first->addSubview(child);
  second->addSubview(child);
  EXPECT_TRUE(first->subviews().empty());
  EXPECT_TRUE(first->layer()->sublayers().empty());
  EXPECT_EQ(child->superview(), second.get());
  EXPECT_EQ(second->layer()->sublayers().front(), child->layer());
  child->removeFromSuperview();
  EXPECT_EQ(child->superview(), nullptr);
  EXPECT_TRUE(second->subviews().empty());

  second->addSubview(child);
  auto owned = std::make_shared<View>();
  owned->addSubview(first);
  owned.reset();
  EXPECT_EQ(first->superview(), nullptr) << "the superview is gone";
}

TEST(View, asksForDisplayAtTheRootOfTheTree) {
  const auto root = std::make_shared<View>(Rect{{0, 0}, {10, 10}});
  const auto child = std::make_shared<View>();
  root->addSubview(child);
  EXPECT_TRUE(root->layer()->takeNeedsDisplay());
  EXPECT_FALSE(root->layer()->takeNeedsDisplay());
  child->setAlpha(1);
  EXPECT_FALSE(root->layer()->takeNeedsDisplay()) << "nothing changed";
  child->setAlpha(0.5);
  EXPECT_TRUE(root->layer()->takeNeedsDisplay());
}

/// Root 200×100 with a child at (50, 20) of 100×60, turned by a quarter about its centre (100, 50).
class TapTest : public ::testing::Test {
 protected:
  TapTest() {
    root->addSubview(child);
    child->setTransform(AffineTransform::makeRotation(std::numbers::pi / 2));
    child->addGestureRecognizer(onChild);
    root->addGestureRecognizer(onRoot);
  }
  void tap(Point down, Point up, double time = 0) {
    dispatcher.touchBegan(1, down);
    dispatcher.touchEnded(1, up, time);
  }
  static TapGestureRecognizer::Action counting(int& count) {
    return [&count](TapGestureRecognizer&) { ++count; };
  }

  int childTaps = 0;
  int rootTaps = 0;
  std::shared_ptr<View> root = std::make_shared<View>(Rect{{0, 0}, {200, 100}});
  std::shared_ptr<View> child = std::make_shared<View>(Rect{{50, 20}, {100, 60}});
  std::shared_ptr<TapGestureRecognizer> onChild = std::make_shared<TapGestureRecognizer>(counting(childTaps));
  std::shared_ptr<TapGestureRecognizer> onRoot = std::make_shared<TapGestureRecognizer>(counting(rootTaps));
  TouchDispatcher dispatcher{root};
};

TEST_F(TapTest, reachesTheTouchedViewAndThoseAroundIt) {
  tap({100, 90}, {103, 92});  // inside the turned child, outside the unturned one
  EXPECT_EQ(childTaps, 1);
  EXPECT_EQ(rootTaps, 1);
  const Point inChild = onChild->locationInView(child.get());
  // A quarter turn takes (x, y) about the centre to (−y, x), so (3, 42) came from (42, −3).
  EXPECT_NEAR(inChild.x, 50 + 42, 1e-9);
  EXPECT_NEAR(inChild.y, 30 - 3, 1e-9);
  EXPECT_EQ(onChild->locationInView(nullptr), (Point{103, 92}));

  tap({55, 50}, {55, 50});  // inside the unturned child only
  EXPECT_EQ(childTaps, 1);
  EXPECT_EQ(rootTaps, 2);
  tap({300, 50}, {300, 50});
  EXPECT_EQ(rootTaps, 2) << "outside of everything";
}

TEST_F(TapTest, isNoTapWhenItMovesIsHiddenOrDisabled) {
  tap({100, 50}, {100, 70});
  dispatcher.touchBegan(7, {100, 50});
  dispatcher.touchMoved(7, {100, 70});
  dispatcher.touchEnded(7, {100, 50}, 0);  // there and back
  dispatcher.touchEnded(8, {100, 50}, 0);  // never began
  EXPECT_EQ(childTaps + rootTaps, 0);

  child->setHidden(true);
  tap({100, 50}, {100, 50});
  child->setHidden(false);
  child->setUserInteractionEnabled(false);
  tap({100, 50}, {100, 50});
  child->setUserInteractionEnabled(true);
  onChild->setEnabled(false);
  tap({100, 50}, {100, 50});
  EXPECT_EQ(childTaps, 0);
  EXPECT_EQ(rootTaps, 3);
}

TEST_F(TapTest, doubleTapsMustBeCloseInTimeAndPlace) {
  onChild->setNumberOfTapsRequired(2);
  tap({100, 50}, {100, 50}, 1.0);
  tap({100, 50}, {100, 50}, 1.5);  // too late: begins anew
  EXPECT_EQ(childTaps, 0);
  tap({100, 55}, {100, 55}, 1.7);
  EXPECT_EQ(childTaps, 1);
  tap({100, 20}, {100, 20}, 1.8);
  tap({100, 80}, {100, 80}, 1.9);  // too far
  EXPECT_EQ(childTaps, 1);
  EXPECT_EQ(rootTaps, 5);
}

TEST_F(TapTest, twoFingersTapEachForItself) {
  dispatcher.touchBegan(1, {100, 50});
  dispatcher.touchBegan(2, {10, 10});
  dispatcher.touchEnded(2, {10, 10}, 0);
  EXPECT_EQ(rootTaps, 1);
  EXPECT_EQ(childTaps, 0);
  dispatcher.touchEnded(1, {100, 50}, 0);
  EXPECT_EQ(childTaps, 1);
}

TEST_F(TapTest, anActionMayTakeTheTreeApart) {
  onChild->setNumberOfTapsRequired(9);
  child->addGestureRecognizer(std::make_shared<TapGestureRecognizer>([this](TapGestureRecognizer& recognizer) {
    recognizer.view()->removeFromSuperview();
    child.reset();
  }));
  tap({100, 50}, {100, 50});
  EXPECT_TRUE(root->subviews().empty());
  EXPECT_EQ(rootTaps, 1);
}

}  // namespace
}  // namespace tavrel
