// A filter of one's own: a shader, its parameter, and nothing else.
//   CustomFilter INPUT.jpg OUTPUT.png [STRENGTH]
#include <fmt/format.h>

#include <cstdlib>

#include "TavrelCaptureBase.h"

/// Darkens towards the corners.
class VignetteFilter : public tavrel::TavrelGPUImageFilter {
 public:
  VignetteFilter()
      : TavrelGPUImageFilter(R"(
          varying highp vec2 textureCoordinate;
          uniform sampler2D inputImageTexture;
          uniform highp float strength;
          void main() {
            lowp vec4 color = texture2D(inputImageTexture, textureCoordinate);
            highp float distance = length(textureCoordinate - 0.5) / 0.7071;  // 1 in the corners
            gl_FragColor = vec4(color.rgb * (1.0 - strength * distance * distance), color.a);
          })") {
    setStrength(0.5);
    allowFusion();  // it overrides nothing that draws
  }

  /// From 0, which changes nothing, to 1, which makes the corners black. Any thread, also while frames run.
  void setStrength(float strength) { setFloat(strength, "strength"); }
};

int main(int argc, char** argv) {
  using namespace tavrel;
  if (argc < 3) {
    fmt::print(stderr, "usage: CustomFilter INPUT.jpg OUTPUT.png [STRENGTH]\n");
    return 2;
  }
  const auto filter = std::make_shared<VignetteFilter>();
  if (argc > 3) filter->setStrength(static_cast<float>(std::atof(argv[3])));

  const auto written = ImageSource::createWithFile(argv[1])
                           .and_then([](const auto& source) { return source->imageAtIndex(0); })
                           .map([&](const auto& image) { return filter->imageByFilteringImage(image); })
                           .and_then([&](const auto& image) { return ImageDestination::write(image, argv[2]); });
  if (written) return 0;
  fmt::print(stderr, "{}\n", written.error().description);
  return 1;
}
