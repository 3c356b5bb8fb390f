// A filter of the application's own, on a picture of one colour: the result says whether graph, shader and bytes work.
#include <fmt/format.h>

#include "TavrelCaptureBase.h"

class Negative : public tavrel::TavrelGPUImageFilter {
 public:
  Negative()
      : TavrelGPUImageFilter(R"(
          varying highp vec2 textureCoordinate;
          uniform sampler2D inputImageTexture;
          void main() {
            lowp vec4 color = texture2D(inputImageTexture, textureCoordinate);
            gl_FragColor = vec4(1.0 - color.rgb, color.a);
          })") {}
};

int main() {
  using namespace tavrel;
  const auto bytes = DataProvider::create(Data(4 * 4 * 4, 55));
  const auto picture = Image::create(4, 4, 8, 32, 16, kBitmapOpaqueBGRX, bytes);
  const auto result = std::make_shared<Negative>()->imageByFilteringImage(picture);
  if (!result) return 1;
  fmt::print("{} {}x{} {}\n", TavrelCaptureBaseVersionString, result->width(), result->height(),
             static_cast<int>(result->dataProvider()->bytes()[0]));
}
