#include "EffectOptions.h"

#include <algorithm>
#include <cmath>
#include <map>
#include <stdexcept>
#include <utility>

#include "GeometryEffects.h"
#include "OptionValues.h"
#include "Report.h"

namespace tavrel::tool {
namespace {

template <typename T>
T valueOrThrow(Expected<T> value) {
  if (!value) throw std::runtime_error(value.error().description);
  return std::move(*value);
}

std::shared_ptr<TavrelCaptureEffect> makeCrop(const std::string& value) {
  const std::vector<double> numbers = parseNumbers(value, 4, 4, "--crop", "X,Y,W,H, each from 0 to 1");
  checkUnitRange(numbers, "--crop", value);
  const Rect region = {{numbers[0], numbers[1]}, {numbers[2], numbers[3]}};
  if (region.size.width == 0 || region.size.height == 0) {
    throw UsageError(fmt::format("--crop {}: the rectangle is empty", value));
  }
  // A little more than 1 is allowed for thirds and the like.
  constexpr double kLargest = 1 + 1e-6;
  if (region.maxX() > kLargest || region.maxY() > kLargest) {
    throw UsageError(fmt::format("--crop {}: the rectangle reaches beyond the picture", value));
  }
  return std::make_shared<CropEffect>(region);
}

std::shared_ptr<TavrelCaptureEffect> makeMirror(const std::string&) {
  return std::make_shared<TurnEffect>(kTavrelGPUImageFlipHorizontal);
}

std::shared_ptr<TavrelCaptureEffect> makeRotation(const std::string& value) {
  const double number = parseNumbers(value, 1, 1, "--rotate", "a mode from 0 to 7").front();
  if (number != std::floor(number) || number < 0 || number > 7) {
    throw UsageError(fmt::format("--rotate {}: the mode is a whole number from 0 to 7", value));
  }
  return std::make_shared<TurnEffect>(static_cast<TavrelGPUImageRotationMode>(number));
}

/// Has its tone from the first frame on: the filter takes a tone over with the next beauty level that it is given.
class TonedBeauty : public TavrelFaceBeautyCaptureEffect {
  TavrelCaptureEffectNodes makeNodes(Size frameSize) override {
    TavrelCaptureEffectNodes nodes = TavrelFaceBeautyCaptureEffect::makeNodes(frameSize);
    applyChange("beautyLevel", nodes);
    return nodes;
  }
};

std::shared_ptr<TavrelCaptureEffect> makeBeauty(const std::string& value) {
  const std::vector<double> levels = parseNumbers(value, 1, 3, "--beauty", "B, B,BRIGHT or B,BRIGHT,TONE");
  checkUnitRange(levels, "--beauty", value);
  auto effect = std::make_shared<TonedBeauty>();
  effect->setBeautyLevel(levels[0]);
  if (levels.size() > 1) effect->setBrightLevel(levels[1]);
  if (levels.size() > 2) effect->setToneLevel(levels[2]);
  return effect;
}

std::shared_ptr<TavrelCaptureEffect> makeBlur(const std::string& value) {
  const double radius = parseNumbers(value, 1, 1, "--blur", "a radius in pixels").front();
  if (radius < 0 || radius > BlurEffect::kLargestRadius) {
    throw UsageError(
        fmt::format("--blur {}: expected a radius from 0 to {} pixels", value, BlurEffect::kLargestRadius));
  }
  return std::make_shared<BlurEffect>(radius);
}

std::shared_ptr<TavrelCaptureEffect> makeLookup(const std::string& value) {
  auto effect = std::make_shared<TavrelLUTFilterCaptureEffect>();
  TavrelLookupTable lookup = valueOrThrow(TavrelLookupTableFromFile(value));
  effect->setImage(std::move(lookup.image));
  effect->setTable(std::move(lookup.table));
  return effect;
}

template <typename Sticker>
std::shared_ptr<TavrelCaptureEffect> placed(std::shared_ptr<Sticker> sticker, const Placement& placement) {
  sticker->setDestRect(placement.rectangle);
  sticker->setRotation(placement.radians);
  return sticker;
}

std::shared_ptr<ImageSource> openPictures(const Placement& placement) {
  return valueOrThrow(readFile(placement.file).and_then([&](Data bytes) {
    return createPictures(DataProvider::create(std::move(bytes)), placement.file);
  }));
}

std::shared_ptr<TavrelCaptureEffect> makeAnimated(const ImageSource& source, const Placement& placement) {
  auto created = TavrelAnimatedStickerCaptureEffect::create(valueOrThrow(readFile(placement.file)));
  if (created) return placed(std::move(*created), placement);
  throw std::runtime_error(
      fmt::format("{} is damaged: none of its {} frames can be decoded", placement.file, source.count()));
}

std::shared_ptr<TavrelCaptureEffect> makeSticker(const std::string& value) {
  const Placement placement = parsePlacement(value, "--sticker");
  const auto source = openPictures(placement);
  if (source->count() > 1) return makeAnimated(*source, placement);
  auto sticker = std::make_shared<TavrelImageStickerCaptureEffect>();
  sticker->setImage(normalizedImage(valueOrThrow(source->decodedImage(0, {.keepsStraight = true}))));
  return placed(std::move(sticker), placement);
}

std::shared_ptr<TavrelCaptureEffect> makeAnimatedSticker(const std::string& value) {
  const Placement placement = parsePlacement(value, "--gif");
  const auto source = openPictures(placement);
  if (source->count() == 1 && std::string_view(source->type()) != "image/gif") {
    throw std::runtime_error(fmt::format("{} is no animation; --sticker takes still pictures", placement.file));
  }
  return makeAnimated(*source, placement);
}

}  // namespace

EffectOptions::EffectOptions(CLI::App& command) : command_(command) {
  constexpr const char* kGroup = "How effects work";
  command.add_flag("--linear", worksInLight_, "Blur and scale linear light instead of sRGB's values")->group(kGroup);
  command
      .add_option("--precision", precision_,
                  "Bits of each component between effects; an output of 8 is dithered where that is more")
      ->check(CLI::IsMember({8, 16}))
      ->group(kGroup);
  command.add_option("--resample", resampling_, "How to enlarge more than twice: linear, or bicubic")
      ->check(CLI::IsMember({"linear", "bicubic"}))
      ->capture_default_str()
      ->group(kGroup);
  // Values are taken apart here, not by the parser, so that the order of different options is kept.
  const auto add = [&](CLI::Option* option, Maker make) {
    option->group("Effects, applied in the order given")->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    kinds_.push_back({option, make});
  };
  add(command.add_option("--crop", "Crop to this rectangle, in 0..1")->type_name("X,Y,W,H")->type_size(1), makeCrop);
  add(command.add_flag("--mirror")->description("Mirror left to right"), makeMirror);
  add(command
          .add_option("--rotate",
                      "Rotate or flip: 0 not at all, 1 left, 2 right, 3 flip vertical, 4 flip horizontal, 5 right and "
                      "flip vertical, 6 right and flip horizontal, 7 upside down")
          ->type_name("0..7")
          ->type_size(1),
      makeRotation);
  add(command
          .add_option("--beauty",
                      "Smooth skin by B, brighten by BRIGHT (0.5 is neutral) and tone by TONE, each from 0 to 1")
          ->type_name("B[,BRIGHT[,TONE]]")
          ->type_size(1),
      makeBeauty);
  add(command
          .add_option("--lut",
                      "Apply a lookup table: a .cube, .3dl or .csp file, a HALD picture or a 512x512 one of 8x8 tiles")
          ->type_name("FILE")
          ->type_size(1),
      makeLookup);
  add(command.add_option("--blur", "Blur by a Gaussian with this sigma, in pixels")->type_name("RADIUS")->type_size(1),
      makeBlur);
  add(command
          .add_option(
              "--sticker",
              "Draw a picture over the frame, in pixels from the top left, rotated clockwise about its centre; an "
              "animation plays in a movie and shows its first picture on a still one")
          ->type_name("FILE@X,Y,W,H[,DEGREES]")
          ->type_size(1),
      makeSticker);
  add(command.add_option("--gif", "The same, for animations only")->type_name("FILE@X,Y,W,H[,DEGREES]")->type_size(1),
      makeAnimatedSticker);
}

bool EffectOptions::areAsked() const {
  return worksInLight_ || precision_ != 0 || resampling_ != "linear" ||
         std::any_of(kinds_.begin(), kinds_.end(), [](const Kind& kind) { return kind.option->count() > 0; });
}

TavrelCaptureEffectChain EffectOptions::makeChain() const {
  const auto graphics = TavrelGPUImageContext::sharedImageProcessingContext()->prepareContext();
  if (!graphics) throw std::runtime_error(graphics.error().description);
  const bool worksDeep = precision_ == 16;
  if ((worksInLight_ || worksDeep) && !TavrelGPUImageContext::deepTextureOptions()) {
    throw std::runtime_error(worksDeep ? "--precision 16: this GL renders to 8 bits only"
                                       : "--linear: this GL renders to 8 bits only, too little for linear light");
  }
  TavrelGPUImageContext::setWorksDeep(worksDeep);
  TavrelGPUImageContext::setScaling({.enlargesByBicubic = resampling_ == "bicubic", .worksInLight = worksInLight_});
  std::vector<std::shared_ptr<TavrelCaptureEffect>> effects;
  std::map<const CLI::Option*, std::size_t> used;
  for (const CLI::Option* given : command_.parse_order()) {
    for (const Kind& kind : kinds_) {
      if (kind.option != given) continue;
      effects.push_back(kind.make(given->results().at(used[given]++)));
    }
  }
  return TavrelCaptureEffectChain(std::move(effects));
}

}  // namespace tavrel::tool
