#include <cstring>
#include <nlohmann/json.hpp>
#include <optional>

#include "Command.h"
#include "Diagnostics.h"
#include "EffectOptions.h"
#include "PictureFiltering.h"
#include "PicturePrecision.h"
#include "Report.h"

namespace tavrel::tool {
namespace {

/// The colour space of an ICC profile's pixels stands at the 16th byte.
bool isOfRGB(const Data& profile) { return profile.size() >= 20 && std::memcmp(profile.data() + 16, "RGB ", 4) == 0; }

class FilterCommand : public Command {
 public:
  explicit FilterCommand(CLI::App& app)
      : Command(app, "filter", "Apply effects to a picture"), effects_(*command_), diagnostics_(*command_) {
    command_->add_option("INPUT", input_, "A PNG, JPEG, GIF, WebP, AVIF, TIFF or HEIC picture")->required();
    command_->add_option("OUTPUT", output_, "The picture to write: .png, .jpg, .webp or .avif")->required();
    command_
        ->add_option("--quality", quality_, "Quality of JPEG, WebP and AVIF, 0 to 1; 1 loses nothing of the latter two")
        ->check(CLI::Range(0.0, 1.0))
        ->capture_default_str();
    command_->add_option("--memory", memory_, "Memory for the graph, in MiB; larger pictures are processed in parts")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    command_->add_option("--depth", depth_, "Bits of each component of a PNG or AVIF; by default those of the input")
        ->check(CLI::IsMember({8, 16}));
    command_->add_option("--profile", profile_, "Colours of the output: srgb, or keep for the input's profile")
        ->check(CLI::IsMember({"srgb", "keep"}))
        ->capture_default_str();
    command_->add_flag("--strip", strips_, "Leave out the input's EXIF and XMP");
    command_->add_flag("--json", json_, "Print the result as JSON");
  }

  int run() override {
    TavrelCaptureEffectChain effects =
        effects_.areAsked() ? effects_.makeChain() : TavrelCaptureEffectChain(TavrelCaptureEffectChain::Effects());
    return diagnostics_.measure(json_, [&] { return filter(effects); });
  }

 private:
  int filter(TavrelCaptureEffectChain& effects) {
    const int precision = effects_.precision();
    const ImageDecoding decoding = {.keepsDepth = precision == 0 ? depth_ != 8 : precision == 16,
                                    .keepsColors = profile_ == "keep"};
    ImageMetadata metadata;
    auto image = ImageSource::createWithFile(input_).and_then([&](const std::shared_ptr<ImageSource>& source) {
      metadata = source->metadata();
      return source->decodedImage(0, decoding);
    });
    std::optional<LargeImage> large;
    if (!image && image.error() == ImagingErrorCode::pictureTooLarge) {
      image = LargeImage::read(input_, decoding).map([&](const LargeImage& read) {
        metadata = read.metadata();
        return large.emplace(read).image();
      });
    }
    if (!image) return fail("{}", image.error().description);
    if (!decoding.keepsColors) metadata.colorProfile.clear();
    if (!metadata.colorProfile.empty() && !isOfRGB(metadata.colorProfile)) {
      say("--profile keep: the profile of {} is not one of red, green and blue; the output is sRGB", input_.string());
    }
    if (strips_) metadata.exif = metadata.xmp = {};
    const int depth = depth_ != 0 ? depth_ : (*image)->bitsPerPixel() == 64 ? 16 : 8;
    if (precision == 16 && !large) image = deepened(normalizedImage(*image));
    FilteredPicture filtered = PictureFiltering(effects, memory_ * (1 << 20)).run(normalizedImage(*image), large);
    if (!filtered.image) return kFailure;
    if (precision == 16 && depth == 8 && !filtered.large) filtered.image = dithered(filtered.image);

    const bool isLargePng = filtered.large && output_.extension() == ".png";
    const ImageEncoding encoding = {.quality = quality_, .bitsPerComponent = depth, .metadata = std::move(metadata)};
    const auto written = isLargePng ? filtered.large->write(output_, encoding)
                                    : ImageDestination::write(filtered.image, output_, encoding);
    if (!written) return fail("{}", written.error().description);
    if (json_) {
      nlohmann::ordered_json result = {
          {"output", output_.string()}, {"width", filtered.image->width()}, {"height", filtered.image->height()}};
      diagnostics_.addTo(result);
      printJson(result);
    } else {
      fmt::print("{} {}x{}\n", output_.string(), filtered.image->width(), filtered.image->height());
    }
    return kSuccess;
  }

  EffectOptions effects_;
  Diagnostics diagnostics_;
  std::filesystem::path input_;
  std::filesystem::path output_;
  double quality_ = 0.92;
  double memory_ = 1024;
  int depth_ = 0;
  std::string profile_ = "srgb";
  bool strips_ = false;
  bool json_ = false;
};

}  // namespace

std::unique_ptr<Command> makeFilterCommand(CLI::App& app) { return std::make_unique<FilterCommand>(app); }

}  // namespace tavrel::tool
