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
      {"aspectRatio", [=](double v) { view->setAspectRatio(v); }, [=] { return view->aspectRatio(); }},
  };
}

std::vector<Setter> settersOfThePlatform() {
  const auto layer = std::make_shared<Layer>();
  const auto view = std::make_shared<View>();
  const auto mix = std::make_shared<AudioMixInputParameters>(1);
  const auto composition = MutableVideoComposition::create();
  const auto camera = TavrelCamera::create({}).value();
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

TEST(Numbers, NodesTakeFiniteOnesOnly) { expectThatOnlyFiniteNumbersAreTaken(settersOfNodes()); }

TEST(Numbers, ThePlatformTakesFiniteOnesOnly) { expectThatOnlyFiniteNumbersAreTaken(settersOfThePlatform()); }

}  // namespace
}  // namespace tavrel::test
