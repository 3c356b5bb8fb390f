#include "Support/CameraTestSupport.h"

namespace tavrel {
namespace {

using test::CameraTest;

/// Draws with a program of its own.
class Shaded : public TavrelCaptureEffect {
 public:
  explicit Shaded(std::string blue) : blue_(std::move(blue)) {}
  std::shared_ptr<TavrelCaptureEffect> copy() const override { return std::make_shared<Shaded>(blue_); }
  TavrelCaptureEffectNodes makeNodes(Size) override {
    const auto filter = std::make_shared<TavrelGPUImageFilter>(
        "varying highp vec2 textureCoordinate; uniform sampler2D inputImageTexture; void main() { gl_FragColor = "
        "vec4(texture2D(inputImageTexture, textureCoordinate).rg, " +
        blue_ + ", 1.0); }");
    return {.filters = {filter}, .pictures = {}};
  }

 private:
  const std::string blue_;
};

/// Notes how many programs there are when a frame comes.
class ProgramWatch : public TavrelCameraDelegate {
 public:
  void didGetProcessedFramebuffer(TavrelCamera&, const std::shared_ptr<TavrelGPUImageFramebuffer>& framebuffer,
                                  const SampleTiming&) override {
    framebuffer->texture();  // drawn
    programs = TavrelGPUImageFilter::fusedProgramCount();
    ++frames;
  }

  std::atomic<std::size_t> programs = 0;
  std::atomic<int> frames = 0;
};

TEST_F(CameraTest, NoFrameWaitsForTheProgramsOfItsEffects) {
  const auto watch = std::make_shared<ProgramWatch>();
  const auto framesPass = [&] {
    const int before = watch->frames;
    return runUntil([&] { return watch->frames >= before + 3; });
  };
  auto configuration = smallPictures();
  configuration.captureEffects = {std::make_shared<Shaded>("0.125")};
  // The rest is drawn the same each time.
  ASSERT_NO_FATAL_FAILURE(makeAndStart(configuration));
  camera_->setDelegate(watch);
  ASSERT_TRUE(framesPass());

  for (const char* const blue : {"0.25", "0.375", "0.5"}) {
    const auto effect = std::make_shared<Shaded>(blue);
    const std::size_t before = TavrelGPUImageFilter::fusedProgramCount();
    camera_->setCaptureEffects({effect, std::make_shared<TavrelFaceBeautyCaptureEffect>(), effect});
    const std::size_t prepared = TavrelGPUImageFilter::fusedProgramCount();
    ASSERT_TRUE(framesPass());
    EXPECT_EQ(watch->programs, prepared) << "none is made for a frame, after " << before;
    const char* const choice = std::getenv("TAVREL_FUSE");
    if (!choice || std::string_view(choice) != "0") {
      EXPECT_GT(prepared, before);
    }
  }
}

}  // namespace
}  // namespace tavrel
