#include "Platform/UI/Window.h"

#include <SDL.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <set>
#include <thread>

#include "Platform/Graphics/GraphicsDisplay.h"
#include "Support/CaptureTestSupport.h"
#include "Support/ReaderMovies.h"
#include "TavrelCaptureTesting.h"
#include "WindowTestSupport.h"

namespace tavrel::test {
namespace {

/// Four quarters of different colours, with a dark bar at the top: no turn or mirror looks like another.
Pixel sceneColor(double u, double v, Size size) {
  if (v < size.height / 6) return {64, 64, 64, 255};
  if (v < size.height / 2) return u < size.width / 2 ? Pixel{255, 0, 0, 255} : Pixel{0, 255, 0, 255};
  return u < size.width / 2 ? Pixel{0, 0, 255, 255} : Pixel{255, 255, 0, 255};
}

constexpr Size kSceneSize = {96, 54};

Picture scene() {
  return {static_cast<int>(kSceneSize.width), static_cast<int>(kSceneSize.height),
          [](int x, int y) { return sceneColor(x + 0.5, y + 0.5, kSceneSize); }};
}

/// Where in the scene the viewer of the turned picture looks; both in 0…1.
Point sceneFraction(TavrelGPUImageRotationMode mode, Point at) {
  const auto isOneOf = [mode](std::initializer_list<TavrelGPUImageRotationMode> modes) {
    return std::find(modes.begin(), modes.end(), mode) != modes.end();
  };
  const Point turned = TavrelGPUImageRotationSwapsWidthAndHeight(mode) ? Point{at.y, at.x} : at;
  const bool mirrorsX = isOneOf({kTavrelGPUImageRotateLeft, kTavrelGPUImageFlipHorizontal,
                                 kTavrelGPUImageRotateRightFlipHorizontal, kTavrelGPUImageRotate180});
  const bool mirrorsY = isOneOf({kTavrelGPUImageRotateRight, kTavrelGPUImageFlipVertical,
                                 kTavrelGPUImageRotateRightFlipHorizontal, kTavrelGPUImageRotate180});
  return {mirrorsX ? 1 - turned.x : turned.x, mirrorsY ? 1 - turned.y : turned.y};
}

/// What a window of `window` pixels shows at (x, y).
Pixel expectedColor(TavrelGPUImageRotationMode mode, TavrelGPUImageFillModeType fill, Size window, double x, double y) {
  const bool swaps = TavrelGPUImageRotationSwapsWidthAndHeight(mode);
  const Size turned = swaps ? Size{kSceneSize.height, kSceneSize.width} : kSceneSize;
  double sx = window.width / turned.width;
  double sy = window.height / turned.height;
  if (fill == kTavrelGPUImageFillModePreserveAspectRatio) sx = sy = std::min(sx, sy);
  if (fill == kTavrelGPUImageFillModePreserveAspectRatioAndFill) sx = sy = std::max(sx, sy);
  const double u = (x - window.width / 2) / (sx * turned.width) + 0.5;
  const double v = (y - window.height / 2) / (sy * turned.height) + 0.5;
  if (u < 0 || u >= 1 || v < 0 || v >= 1) return {0, 0, 0, 255};
  const Point at = sceneFraction(mode, {u, v});
  return sceneColor(at.x * kSceneSize.width, at.y * kSceneSize.height, kSceneSize);
}

/// The share of pixels that are wrong, those near an edge of the scene left out.
double wrongShare(const Picture& picture, TavrelGPUImageRotationMode mode, TavrelGPUImageFillModeType fill) {
  const Size window = {static_cast<double>(picture.width), static_cast<double>(picture.height)};
  constexpr double kEdge = 4;
  int wrong = 0;
  for (int y = 0; y < picture.height; ++y) {
    for (int x = 0; x < picture.width; ++x) {
      const Pixel expected = expectedColor(mode, fill, window, x + 0.5, y + 0.5);
      bool isNearEdge = false;
      for (const auto& [dx, dy] : {std::pair(kEdge, 0.0), {-kEdge, 0.0}, {0.0, kEdge}, {0.0, -kEdge}}) {
        isNearEdge |= !(expectedColor(mode, fill, window, x + 0.5 + dx, y + 0.5 + dy) == expected);
      }
      const Pixel& actual = picture.at(x, y);
      const bool isWrong = std::abs(actual.r - expected.r) > 2 || std::abs(actual.g - expected.g) > 2 ||
                           std::abs(actual.b - expected.b) > 2;
      if (!isNearEdge && isWrong) ++wrong;
    }
  }
  return wrong / (window.width * window.height);
}

TEST_F(WindowTest, showsEveryFillModeAndRotationUprightInItsColours) {
  EXPECT_FALSE(GraphicsDisplay::shared().isHeadless());
  for (std::uint64_t fill = 0; fill < 3; ++fill) {
    for (std::uint64_t rotation = 0; rotation < 8; ++rotation) {
      const auto fillMode = static_cast<TavrelGPUImageFillModeType>(fill);
      const auto rotationMode = static_cast<TavrelGPUImageRotationMode>(rotation);
      view->setFillMode(fillMode);
      view->setInputRotation(rotationMode, 0);
      show(scene());
      double share = 1;
      EXPECT_TRUE(becomes([&](const Picture& picture) {
        share = wrongShare(picture, rotationMode, fillMode);
        return share == 0;
      })) << "fill mode "
          << fill << ", rotation " << rotation << ": " << share << " of the pixels are wrong";
    }
  }
}

TEST_F(WindowTest, resizesWithoutStretchingWhatIsStale) {
  view->setFillMode(kTavrelGPUImageFillModeStretch);
  show(scene());
  ASSERT_TRUE(becomes([](const Picture& picture) {
    return wrongShare(picture, kTavrelGPUImageNoRotation, kTavrelGPUImageFillModeStretch) == 0;
  }));

  const int created = displayRenderbuffersCreated();
  ASSERT_TRUE(control("windowsize 240 120"));
  // No frame came since: the earlier one stays as it was, in the middle.
  EXPECT_TRUE(becomes(
      [](const Picture& picture) {
        const Picture middle(kWidth, kHeight, [&](int x, int y) { return picture.at(x + 40, y); });
        return wrongShare(middle, kTavrelGPUImageNoRotation, kTavrelGPUImageFillModeStretch) == 0 &&
               picture.at(10, 60) == Pixel{0, 0, 0, 255};
      },
      240, 120));
  EXPECT_EQ(view->sizeInPixels(), (Size{240, 120}));
  EXPECT_EQ(displayRenderbuffersCreated(), created + 1);
  show(scene());
  EXPECT_TRUE(becomes(
      [](const Picture& picture) {
        return wrongShare(picture, kTavrelGPUImageNoRotation, kTavrelGPUImageFillModeStretch) == 0;
      },
      240, 120));

  ASSERT_TRUE(control("windowsize 100 200"));
  ASSERT_TRUE(RunLoop::main().runUntil([&] { return view->sizeInPixels() == Size{100, 200}; }, 5s));
  RunLoop::main().runFor(100ms);
  EXPECT_EQ(displayRenderbuffersCreated(), created + 2);
}

/// The virtual camera in front of the test's view, at 30 pictures a second.
class Stream {
 public:
  explicit Stream(const std::shared_ptr<TavrelGPUImageView>& view)
      : camera_(CaptureDevice::deviceWithUniqueID(VirtualCaptureSystem::kFrontCamera), "160x120") {
    input_->addTarget(view);
    camera_.frames->onFrame = [this](const std::shared_ptr<SampleBuffer>& sample) {
      input_->processCVPixelBuffer(sample->imageBuffer(), sample->presentationTimeStamp(), false);
    };
    camera_.session->startRunning();
  }
  ~Stream() {
    camera_.session->stopRunning();
    camera_.queue->sync([] {});
    TavrelRunSynchronouslyOnVideoProcessingQueue([] {});
  }
  std::uint64_t frames() const { return camera_.data->deliveredFrames(); }

 private:
  CameraBench camera_;
  std::shared_ptr<TavrelGPUImageCVPixelBufferInput> input_ = std::make_shared<TavrelGPUImageCVPixelBufferInput>();
};

TEST_F(WindowTest, staysRightWhileFramesAndNewSizesCome) {
  Stream stream(view);
  for (const Size size : {Size{200, 150}, Size{90, 60}, Size{160, 120}}) {
    window->setSize(size);
    EXPECT_TRUE(RunLoop::main().runUntil([&] { return view->sizeInPixels() == size; }, 5s));
    const auto shown = window->framesShown();
    EXPECT_TRUE(RunLoop::main().runUntil([&] { return window->framesShown() > shown + 5; }, 5s));
  }
  EXPECT_TRUE(becomes([](const Picture& picture) { return picture.at(80, 110).g > 20; })) << "the camera's scene";
}

TEST_F(WindowTest, neverGoesBackToAnOlderFrame) {
  constexpr int kLast = 120;
  std::thread source([this] {
    for (int level = 1; level <= kLast; ++level) {
      show(Picture(8, 8, [&](int, int) { return Pixel{level * 2, level * 2, level * 2, 255}; }));
      std::this_thread::sleep_for(10ms);
    }
  });
  view->setFillMode(kTavrelGPUImageFillModeStretch);
  int newest = 0;
  std::set<int> levels;
  EXPECT_TRUE(becomes([&](const Picture& picture) {
    const int level = picture.at(kWidth / 2, kHeight / 2).g;
    EXPECT_GE(level, newest - 1);
    newest = std::max(newest, level);
    levels.insert(level);
    return newest >= kLast * 2 - 1;
  }));
  EXPECT_GT(levels.size(), 3U) << "looked at while frames came";
  source.join();
}

TEST_F(WindowTest, closesWhileFramesArrive) {
  Stream stream(view);
  ASSERT_TRUE(RunLoop::main().runUntil([&] { return window->framesShown() > 3; }, 5s));
  window->close();
  EXPECT_FALSE(window->isOpen());
  const auto frames = stream.frames();
  EXPECT_TRUE(RunLoop::main().runUntil([&] { return stream.frames() > frames + 5; }, 5s)) << "the graph goes on";
  EXPECT_FALSE(control("getwindowname > /dev/null 2>&1"));
  EXPECT_EQ(window->size(), Size{});

  // Shown again in another window.
  auto second = Window::create("tavrel-test-2", {kWidth, kHeight});
  ASSERT_TRUE(second) << second.error().description;
  (*second)->rootView()->addSubview(view);
  EXPECT_TRUE(RunLoop::main().runUntil([&] { return (*second)->framesShown() > 5; }, 5s));
}

TEST_F(WindowTest, asksItsHandlersAboutKeysAndClosing) {
  std::vector<std::string> keys;
  window->setKeyHandler([&](std::string_view key) { keys.emplace_back(key); });
  ASSERT_TRUE(control("windowfocus --sync"));
  ASSERT_TRUE(UIVirtualScreen::xdotool("key q space"));
  EXPECT_TRUE(RunLoop::main().runUntil([&] { return keys.size() == 2; }, 5s));
  EXPECT_EQ(keys, (std::vector<std::string>{"Q", "Space"}));

  SDL_Event event{};
  event.type = SDL_WINDOWEVENT;
  event.window.event = SDL_WINDOWEVENT_CLOSE;
  for (std::uint32_t identifier = 1; identifier < 100; ++identifier) {
    if (SDL_GetWindowFromID(identifier)) event.window.windowID = identifier;
  }
  int asked = 0;
  window->setCloseHandler([&] { ++asked; });
  SDL_PushEvent(&event);
  EXPECT_TRUE(RunLoop::main().runUntil([&] { return asked == 1; }, 5s));
  EXPECT_TRUE(window->isOpen());
  window->setCloseHandler({});
  SDL_PushEvent(&event);
  EXPECT_TRUE(RunLoop::main().runUntil([&] { return !window->isOpen(); }, 5s));
}

TEST_F(WindowTest, tellsTheApplicationsState) {
  const auto becomesState = [](ApplicationState state) {
    return RunLoop::main().runUntil([&] { return Application::shared().state() == state; }, 5s);
  };
  ASSERT_TRUE(control("windowfocus --sync"));
  EXPECT_TRUE(becomesState(ApplicationState::active));
  ASSERT_TRUE(control("windowunmap --sync"));
  EXPECT_TRUE(becomesState(ApplicationState::background));
  const auto shown = window->framesShown();
  show(scene());
  RunLoop::main().runFor(100ms);
  EXPECT_EQ(window->framesShown(), shown) << "nobody looks";
  ASSERT_TRUE(control("windowmap --sync"));
  ASSERT_TRUE(control("windowfocus --sync"));
  EXPECT_TRUE(becomesState(ApplicationState::active));
  EXPECT_TRUE(RunLoop::main().runUntil([&] { return window->framesShown() > shown; }, 5s));
  window->close();
  EXPECT_EQ(Application::shared().state(), ApplicationState::active);
}

TEST_F(WindowTest, displayLinksFollowTheDisplay) {
  EXPECT_GT(Screen::main().framesPerSecond(), 0);
  const double before = Screen::main().framesPerSecond();
  Screen::main().setMode(Screen::main().size(), 25);
  int ticks = 0;
  const auto link = DisplayLink::create([&](DisplayLink& self) {
    ++ticks;
    EXPECT_DOUBLE_EQ(self.duration(), 1 / 25.0);
  });
  link->addToMainRunLoop();
  RunLoop::main().runFor(800ms);
  EXPECT_LE(ticks, 21);
  EXPECT_GE(ticks, 8);
  link->invalidate();
  Screen::main().setMode(Screen::main().size(), before);
}

TEST_F(WindowTest, playsAPlayerItemOnTheDisplaysClock) {
  if (TavrelGPUImageContext::supportsFastTextureUpload()) {
    GTEST_SKIP()
        << "the two planes of a player item's pictures need plain textures: Platform.UIWindow.plain shows them";
  }
  const ReaderFolder folder;
  makeMovie(folder / "a.mp4",
            "-f lavfi -i color=red:size=96x72:rate=30:duration=1 -f lavfi -i color=blue:size=96x72:rate=30:duration=1 "
            "-lavfi concat -c:v libx264 OUT");
  const auto item = std::make_shared<PlayerItem>(Asset::create(folder / "a.mp4").value());
  const auto movie = std::make_shared<TavrelGPUImageMovie>(item);
  movie->addTarget(view);
  movie->startProcessing();
  const auto shows = [](bool wantsRed) {
    return [wantsRed](const Picture& picture) {
      const Pixel middle = picture.at(kWidth / 2, kHeight / 2);
      return (wantsRed ? middle.r - middle.b : middle.b - middle.r) > 150;
    };
  };
  EXPECT_TRUE(becomes(shows(true)));  // paused at the first picture
  EXPECT_FALSE(becomes(shows(false)));
  const auto shown = window->framesShown();
  const auto begun = std::chrono::steady_clock::now();
  item->play();
  EXPECT_TRUE(becomes(shows(false)));
  EXPECT_GE(std::chrono::steady_clock::now() - begun, 900ms);  // no faster than real time
  EXPECT_GE(window->framesShown() - shown, 8U);
  movie->endProcessing();
}

TEST_F(WindowTest, drawsOnlyWhenSomethingChanged) {
  show(scene());
  RunLoop::main().runFor(150ms);
  const auto shown = window->framesShown();
  RunLoop::main().runFor(200ms);
  EXPECT_EQ(window->framesShown(), shown);
  show(scene());
  RunLoop::main().runFor(100ms);
  EXPECT_EQ(window->framesShown(), shown + 1);
}

TEST_F(WindowTest, refusesSizesThatAreNone) {
  const auto refused = Window::create("none", {0, 100});
  ASSERT_FALSE(refused);
  EXPECT_NE(refused.error().description.find("0×100 points"), std::string::npos) << refused.error().description;
}

}  // namespace
}  // namespace tavrel::test
