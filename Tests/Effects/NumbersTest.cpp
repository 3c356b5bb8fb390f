#include <gtest/gtest.h>

#include <cfloat>
#include <cmath>
#include <functional>
#include <limits>

#include "Support/EffectsGif.h"
#include "Support/GraphTestSupport.h"
#include "TavrelCaptureBase.h"

namespace tavrel::test {
namespace {

/// A setter that takes real numbers, each given the same one, and one of the numbers that it leads to.
struct Setter {
  const char* name;
  std::function<void(double value)> set;
  std::function<double()> get;
};

Rect rectOf(double v) { return {{v, v}, {v, v}}; }
AffineTransform transformOf(double v) { return {v, v, v, v, v, v}; }

std::vector<Setter> settersOfEffects() {
  const auto beauty = std::make_shared<TavrelFaceBeautyCaptureEffect>();
  const auto sticker = std::make_shared<TavrelImageStickerCaptureEffect>();
  const auto animated = TavrelAnimatedStickerCaptureEffect::create(makePlainGif(2, 2, {{}, {}})).value();
  const auto gif = TavrelAnimatedImage::create(makePlainGif(2, 2, {{}, {}})).value();
  return {
      {"beautyLevel", [=](double v) { beauty->setBeautyLevel(v); }, [=] { return beauty->beautyLevel(); }},
      {"brightLevel", [=](double v) { beauty->setBrightLevel(v); }, [=] { return beauty->brightLevel(); }},
      {"toneLevel", [=](double v) { beauty->setToneLevel(v); }, [=] { return beauty->toneLevel(); }},
      {"sticker rotation", [=](double v) { sticker->setRotation(v); }, [=] { return sticker->rotation(); }},
      {"sticker destRect", [=](double v) { sticker->setDestRect(rectOf(v)); },
       [=] { return sticker->destRect().size.width; }},
      {"animated rotation", [=](double v) { animated->setRotation(v); }, [=] { return animated->rotation(); }},
      {"animated destRect", [=](double v) { animated->setDestRect(rectOf(v)); },
       [=] { return animated->destRect().origin.y; }},
      {"startTimestamp", [=](double v) { animated->setStartTimestamp(v); },
       [=] {
         animated->refreshPictureWithTimestamp(3);
         return animated->startTimestamp();
       }},
      {"videoSize",
       [=](double v) {
         animated->setVideoSize({v, v});
       },
       [=] { return animated->videoSize().width; }},
      {"refreshPictureWithTimestamp", [=](double v) { animated->refreshPictureWithTimestamp(v); }, [] { return 0.0; }},
      {"durationPerLoop", [=](double v) { gif->setDurationPerLoop(v); }, [=] { return gif->durationPerLoop(); }},
  };
}

std::vector<Setter> settersOfNodes() {
  const auto blend = std::make_shared<TavrelGPUImageAlphaBlendFilter>();
  const auto beautify = std::make_shared<TavrelGPUImageBeautifyFilter>();
  const auto blur = std::make_shared<TavrelGPUImageGaussianBlurFilter>();
  const auto lookup = std::make_shared<TavrelGPUImageLookupFilter>();
  const auto transform = std::make_shared<TavrelGPUImageTransformFilter>();
  const auto filter = std::make_shared<TavrelGPUImageFilter>();
  const auto view = std::make_shared<TavrelGPUImageView>(Rect{{0, 0}, {4, 4}});
  const auto movie = std::make_shared<TavrelGPUImageMovie>(std::filesystem::path("none.mov"));
  const auto writer = std::make_shared<TavrelGPUImageMovieWriter>(
      std::filesystem::temp_directory_path() / "tavrel-numbers.mov", Size{16, 16});
  return {
      {"mix", [=](double v) { blend->setMix(v); }, [=] { return blend->mix(); }},
      {"filter beautyLevel", [=](double v) { beautify->setBeautyLevel(v); }, [=] { return beautify->beautyLevel(); }},
      {"filter brightLevel", [=](double v) { beautify->setBrightLevel(v); }, [=] { return beautify->brightLevel(); }},
      {"filter toneLevel", [=](double v) { beautify->setToneLevel(v); }, [=] { return beautify->toneLevel(); }},
      {"params", [=](double v) { beautify->setParams(v, v); }, [] { return 0.0; }},
      {"texelSpacingMultiplier", [=](double v) { blur->setTexelSpacingMultiplier(v); },
       [=] { return blur->texelSpacingMultiplier(); }},
      {"blurRadiusInPixels", [=](double v) { blur->setBlurRadiusInPixels(v); },
       [=] { return blur->blurRadiusInPixels(); }},
      {"blurRadiusAsFractionOfImageWidth", [=](double v) { blur->setBlurRadiusAsFractionOfImageWidth(v); },
       [=] { return blur->blurRadiusAsFractionOfImageWidth(); }},
      {"blurRadiusAsFractionOfImageHeight", [=](double v) { blur->setBlurRadiusAsFractionOfImageHeight(v); },
       [=] { return blur->blurRadiusAsFractionOfImageHeight(); }},
      {"verticalTexelSpacing", [=](double v) { blur->setVerticalTexelSpacing(v); },
       [=] { return blur->verticalTexelSpacing(); }},
      {"intensity", [=](double v) { lookup->setIntensity(v); }, [=] { return lookup->intensity(); }},
      {"affineTransform", [=](double v) { transform->setAffineTransform(transformOf(v)); },
       [=] { return transform->affineTransform().tx; }},
      {"forceProcessingAtSize",
       [=](double v) {
         filter->forceProcessingAtSize({v, v});
       },
       [=] { return filter->forcedSize().width; }},
      {"forceProcessingAtSizeRespectingAspectRatio",
       [=](double v) {
         filter->forceProcessingAtSizeRespectingAspectRatio({v, v});
       },
       [=] { return filter->forcedSize().width; }},
      {"horizontalTexelSpacing", [=](double v) { blur->setHorizontalTexelSpacing(v); },
       [=] { return blur->horizontalTexelSpacing(); }},
      {"transform3D", [=](double v) { transform->setTransform3D(Transform3D::makeScale(v, v, v)); },
       [=] { return transform->transform3D().m[0]; }},
      {"filter's input",
       [=](double v) {
         filter->forceProcessingAtSize({});
         filter->setInputSize({v, v}, 0);
       },
       [=] { return filter->sizeOfFBO().width; }},
      {"view's input",
       [=](double v) {
         view->setInputSize({v, v}, 0);
       },
       [] { return 0.0; }},
      {"startTime", [=](double v) { movie->setStartTime(v); }, [=] { return movie->startTime(); }},
      {"duration", [=](double v) { movie->setDuration(v); }, [=] { return movie->duration(); }},
      {"writer's transform", [=](double v) { writer->setTransform(transformOf(v)); },
       [=] { return writer->transform().a; }},
      {"aspectRatio", [=](double v) { view->setAspectRatio(v); }, [=] { return view->aspectRatio(); }},
  };
}

std::vector<Setter> settersOfThePlatform() {
  const auto layer = std::make_shared<Layer>();
  const auto view = std::make_shared<View>();
  const auto mix = std::make_shared<AudioMixInputParameters>(1);
  const auto composition = MutableVideoComposition::create();
  const auto camera = TavrelCamera::create({}).value();
  const auto values = std::make_shared<AnimatedValues>();
  const auto animation = std::make_shared<BasicAnimation>("opacity");
  const auto progress = std::make_shared<double>(0);
  const auto image = std::make_shared<std::shared_ptr<Image>>(imageOf(distinctPicture(2, 2)));
  return {
      {"layer bounds", [=](double v) { layer->setBounds(rectOf(v)); }, [=] { return layer->bounds().size.width; }},
      {"layer position",
       [=](double v) {
         layer->setPosition({v, v});
       },
       [=] { return layer->position().x; }},
      {"layer opacity", [=](double v) { layer->setOpacity(v); }, [=] { return layer->opacity(); }},
      {"contentsScale", [=](double v) { layer->setContentsScale(v); }, [=] { return layer->contentsScale(); }},
      {"view frame", [=](double v) { view->setFrame(rectOf(v)); }, [=] { return view->bounds().size.height; }},
      {"volume", [=](double v) { mix->setVolume(v, MediaTime::zero()); },
       [=] { return mix->volumeAt(MediaTime::zero()); }},
      {"renderScale", [=](double v) { composition->setRenderScale(v); }, [=] { return composition->renderScale(); }},
      {"volume ramp", [=](double v) { mix->setVolumeRamp(v, v, {}); },
       [=] { return mix->volumeAt(MediaTime::zero()); }},
      {"border width", [=](double v) { layer->setBorderWidth(v); }, [=] { return layer->borderWidth(); }},
      {"corner radius", [=](double v) { layer->setCornerRadius(v); }, [=] { return layer->cornerRadius(); }},
      {"layer's color",
       [=](double v) {
         layer->setBackgroundColor({0, v, 0, 1});
       },
       [=] { return layer->backgroundColor().green; }},
      {"layer transform", [=](double v) { layer->setTransform(transformOf(v)); },
       [=] { return layer->transform().tx; }},
      {"animated value", [=](double v) { values->setValue(v, "transform.scale"); },
       [=] { return values->value("transform.scale"); }},
      {"animated transform",
       [=](double v) {
         values->setTransform({v, 0, 0, v, v, v});
       },
       [=] { return values->translationX; }},
      {"animation's duration", [=](double v) { animation->setDuration(v); }, [=] { return animation->duration(); }},
      {"screen scale", [](double v) { Screen::main().setScale(v); }, [] { return Screen::main().scale(); }},
      {"progress",
       [=](double v) {
         *progress = TimingFunction({v, 0}, {1, 1}).progressAt(0);
       },
       [=] { return *progress; }},
      {"image scale", [=](double v) { *image = (*image)->withScaleAndOrientation(v, ImageOrientation::up); },
       [=] { return (*image)->scale(); }},
      {"renderSize",
       [=](double v) {
         composition->setRenderSize({v, v});
       },
       [=] { return composition->renderSize().width; }},
      {"camera size",
       [=](double v) {
         camera->setSize({v, v});
       },
       [=] { return camera->size().width; }},
      {"zoom", [=](double v) { camera->setPreferredVideoZoomFactor(v); },
       [=] { return camera->preferredVideoZoomFactor(); }},
      {"maxFrameRate", [=](double v) { camera->setPreferredMaxFrameRate(v); },
       [=] { return camera->preferredMaxFrameRate(); }},
      {"exposure",
       [=](double v) {
         camera->setPreferredExposurePointOfInterest({v, v});
       },
       [=] { return camera->preferredExposurePointOfInterest().y; }},
      {"minFrameRate", [=](double v) { camera->setPreferredMinFrameRate(v); },
       [=] { return camera->preferredMinFrameRate(); }},
      {"focus",
       [=](double v) {
         camera->setPreferredFocusPointOfInterest({v, v});
       },
       [=] { return camera->preferredFocusPointOfInterest().x; }},
      {"display rate", [](double v) { DisplayLink::setDisplayRate(v); }, [] { return 0.0; }},
      {"audio rate", [](double v) { AudioSession::shared().setSampleRate(v); },
       [] { return AudioSession::shared().sampleRate(); }},
  };
}

void expectThatOnlyFiniteNumbersAreTaken(const std::vector<Setter>& setters) {
  constexpr double kInfinity = std::numeric_limits<double>::infinity();
  for (const Setter& setter : setters) {
    const double before = setter.get();
    for (const double value : {std::nan(""), kInfinity, -kInfinity}) {
      EXPECT_NO_THROW(setter.set(value)) << setter.name << " " << value;
      EXPECT_EQ(setter.get(), before) << setter.name << " " << value;
    }
    for (const double value : {static_cast<double>(FLT_MAX), -static_cast<double>(FLT_MAX), 1e-300, DBL_MAX, 1.0}) {
      EXPECT_NO_THROW(setter.set(value)) << setter.name << " " << value;
      EXPECT_TRUE(std::isfinite(setter.get())) << setter.name << " " << value;
    }
  }
}

TEST(Numbers, EffectsTakeFiniteOnesOnly) { expectThatOnlyFiniteNumbersAreTaken(settersOfEffects()); }

TEST(Numbers, NodesTakeFiniteOnesOnly) {
  expectThatOnlyFiniteNumbersAreTaken(settersOfNodes());
  std::filesystem::remove(std::filesystem::temp_directory_path() / "tavrel-numbers.mov");
}

TEST(Numbers, ThePlatformTakesFiniteOnesOnly) { expectThatOnlyFiniteNumbersAreTaken(settersOfThePlatform()); }

/// Draws "u" everywhere, which is a uniform of that type.
struct UniformFilter : TavrelGPUImageFilter {
  UniformFilter(const std::string& type, const std::string& use)
      : TavrelGPUImageFilter(
            "varying highp vec2 textureCoordinate; uniform sampler2D inputImageTexture; uniform highp " + type +
            " u; void main() { gl_FragColor = 0.0 * texture2D(inputImageTexture, " + "textureCoordinate) + vec4(vec3(" +
            use + "), 1.0); }") {}
  GLint location() const { return uniformIndex("u"); }
};

TEST(Numbers, UniformsTakeFiniteOnesOnly) {
  struct Kind {
    const char* type;
    const char* use;
    std::function<void(UniformFilter& filter, GLfloat value)> set;
  };
  const auto vector3 = [](GLfloat v) { return TavrelGPUVector3{v, 0, 0}; };
  const auto vector4 = [](GLfloat v) { return TavrelGPUVector4{0, 0, 0, v}; };
  const Kind kinds[] = {
      {"float", "u", [](auto& filter, GLfloat v) { filter.setFloat(v, "u"); }},
      {"float", "u", [](auto& filter, GLfloat v) { filter.setFloat(v, filter.location(), nullptr); }},
      {"float", "u", [](auto& filter, GLfloat v) { filter.setFloatArray(&v, 1, filter.location()); }},
      {"float", "u", [](auto& filter, GLfloat v) { filter.setFloatArray(&v, 1, filter.location(), nullptr); }},
      {"vec2", "u.y",
       [](auto& filter, GLfloat v) {
         filter.setPoint({0, v}, "u");
       }},
      {"vec2", "u.x",
       [](auto& filter, GLfloat v) {
         filter.setPoint({v, 0}, filter.location(), nullptr);
       }},
      {"vec2", "u.y",
       [](auto& filter, GLfloat v) {
         filter.setSize({0, v}, "u");
       }},
      {"vec2", "u.x",
       [](auto& filter, GLfloat v) {
         filter.setSize({v, 0}, filter.location(), nullptr);
       }},
      {"vec3", "u.x", [=](auto& filter, GLfloat v) { filter.setFloatVec3(vector3(v), "u"); }},
      {"vec3", "u.x", [=](auto& filter, GLfloat v) { filter.setVec3(vector3(v), filter.location(), nullptr); }},
      {"vec4", "u.w", [=](auto& filter, GLfloat v) { filter.setFloatVec4(vector4(v), "u"); }},
      {"vec4", "u.w", [=](auto& filter, GLfloat v) { filter.setFloatVec4(vector4(v), filter.location()); }},
      {"vec4", "u.w", [=](auto& filter, GLfloat v) { filter.setVec4(vector4(v), filter.location(), nullptr); }},
      {"mat3", "u[2][2]",
       [](auto& filter, GLfloat v) {
         filter.setMatrix3f({0, 0, 0, 0, 0, 0, 0, 0, v}, filter.location(), nullptr);
       }},
      {"mat4", "u[0][1]",
       [](auto& filter, GLfloat v) {
         filter.setMatrix4f({0, v}, filter.location(), nullptr);
       }},
  };
  for (std::size_t i = 0; i < std::size(kinds); ++i) {
    const auto filter = std::make_shared<UniformFilter>(kinds[i].type, kinds[i].use);
    kinds[i].set(*filter, 0.4F);
    for (const GLfloat value : {std::nanf(""), HUGE_VALF, -HUGE_VALF}) kinds[i].set(*filter, value);
    EXPECT_EQ(process(distinctPicture(2, 2), filter).at(1, 1).r, 102) << i;
  }
}

TEST(Numbers, ConfigurationsTakeFiniteOnesOnly) {
  for (const double value : {std::nan(""), HUGE_VAL, -HUGE_VAL}) {
    TavrelCameraConfiguration wanted;
    wanted.size = {value, 100};
    wanted.preferredMinFrameRate = wanted.preferredMaxFrameRate = wanted.preferredVideoZoomFactor = value;
    wanted.preferredFocusPointOfInterest = wanted.preferredExposurePointOfInterest = {0, value};
    const auto camera = TavrelCamera::create(wanted).value();
    const TavrelCameraConfiguration defaults;
    EXPECT_EQ(camera->size(), defaults.size);
    EXPECT_EQ(camera->preferredMinFrameRate(), defaults.preferredMinFrameRate);
    EXPECT_EQ(camera->preferredMaxFrameRate(), defaults.preferredMaxFrameRate);
    EXPECT_EQ(camera->preferredVideoZoomFactor(), 1);
    EXPECT_EQ(camera->preferredFocusPointOfInterest(), defaults.preferredFocusPointOfInterest);
    EXPECT_EQ(camera->preferredExposurePointOfInterest(), defaults.preferredExposurePointOfInterest);

    const auto recorder = TavrelRecorder::create({.size = {value, value}, .framesPerSecond = value}).value();
    EXPECT_EQ(recorder->camera()->size(), defaults.size);
    EXPECT_EQ(recorder->camera()->preferredMinFrameRate(), 30);

    const auto file = std::filesystem::temp_directory_path() / "tavrel-numbers.mov";
    const auto writer = std::make_shared<TavrelGPUImageMovieWriter>(file, Size{value, value});
    EXPECT_TRUE(writer->error().has_value());
    std::filesystem::remove(file);
  }
}

}  // namespace
}  // namespace tavrel::test
