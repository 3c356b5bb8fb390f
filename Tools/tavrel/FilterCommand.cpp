#include <nlohmann/json.hpp>

#include "Command.h"
#include "Diagnostics.h"
#include "EffectOptions.h"
#include "PictureFiltering.h"
#include "Report.h"

namespace tavrel::tool {
namespace {

/// The graph keeps colours as they came, premultiplied; an image that was read back from plain textures says otherwise.
std::shared_ptr<Image> markedPremultiplied(const std::shared_ptr<Image>& image) {
  const auto alpha = static_cast<AlphaInfo>(image->bitmapInfo() & kBitmapAlphaInfoMask);
  if (alpha != AlphaInfo::last) return image;
  return Image::create(image->width(), image->height(), image->bitsPerComponent(), image->bitsPerPixel(),
                       image->bytesPerRow(), static_cast<std::uint32_t>(AlphaInfo::premultipliedLast),
                       image->dataProvider());
}

class FilterCommand : public Command {
 public:
  explicit FilterCommand(CLI::App& app)
      : Command(app, "filter", "Apply effects to a picture"), effects_(*command_), diagnostics_(*command_) {
    command_->add_option("INPUT", input_, "A PNG, JPEG, GIF, WebP or AVIF picture")->required();
    command_->add_option("OUTPUT", output_, "The picture to write: .png or .jpg")->required();
    command_->add_option("--quality", quality_, "JPEG quality, 0 to 1")
        ->check(CLI::Range(0.0, 1.0))
        ->capture_default_str();
    command_->add_option("--memory", memory_, "Memory for the graph, in MiB; larger pictures are processed in parts")
        ->check(CLI::PositiveNumber)
        ->capture_default_str();
    command_->add_flag("--json", json_, "Print the result as JSON");
  }

  int run() override {
    TavrelCaptureEffectChain effects = effects_.makeChain();
    return diagnostics_.measure(json_, [&] { return filter(effects); });
  }

 private:
  int filter(TavrelCaptureEffectChain& effects) {
    const auto image = ImageSource::createWithFile(input_).and_then(
        [](const std::shared_ptr<ImageSource>& source) { return source->imageAtIndex(0); });
    if (!image) return fail("{}", image.error().description);
    const std::shared_ptr<Image> filtered = PictureFiltering(effects, memory_ * (1 << 20)).run(normalizedImage(*image));
    if (!filtered) return kFailure;

    const auto written = ImageDestination::write(markedPremultiplied(filtered), output_, quality_);
    if (!written) return fail("{}", written.error().description);
    if (json_) {
      nlohmann::ordered_json result = {
          {"output", output_.string()}, {"width", filtered->width()}, {"height", filtered->height()}};
      diagnostics_.addTo(result);
      printJson(result);
    } else {
      fmt::print("{} {}x{}\n", output_.string(), filtered->width(), filtered->height());
    }
    return kSuccess;
  }

  EffectOptions effects_;
  Diagnostics diagnostics_;
  std::filesystem::path input_;
  std::filesystem::path output_;
  double quality_ = 0.92;
  double memory_ = 1024;
  bool json_ = false;
};

}  // namespace

std::unique_ptr<Command> makeFilterCommand(CLI::App& app) { return std::make_unique<FilterCommand>(app); }

}  // namespace tavrel::tool
