#include <fmt/format.h>

#include <cmath>
#include <fstream>
#include <random>

#include "ProgramTestSupport.h"
#include "Support/EffectsGif.h"
#include "Support/FilterReference.h"

namespace tavrel {
namespace {

using test::ReferencePicture;
using test::Rgba;

/// Chains of effects with what they make of a picture by the mathematics, rounded to bytes behind each effect.
class RandomChainsTest : public test::ProgramTest {
 protected:
  struct Chain {
    std::string options;
    ReferencePicture picture;
  };

  std::mt19937 random_{20250113};

  int below(int limit) { return static_cast<int>(random_() % static_cast<unsigned>(limit)); }

  /// Three to six effects, two or more of them tables and stickers.
  Chain chain(const test::Picture& picture) {
    Chain chain{"", ReferencePicture(picture)};
    const int length = 3 + below(4);
    for (int i = 0; i < length; ++i) {
      const int kind = i < 2 ? below(2) : below(5);
      kind == 0 ? addTable(chain) : kind == 1 ? addSticker(chain) : kind == 2 ? addCrop(chain) : addTurn(chain);
      for (Rgba& color : chain.picture.colors) {
        for (double& component : color) component = std::round(component * 255) / 255;
      }
    }
    return chain;
  }

 private:
  std::string nextFile(const char* extension) { return file(fmt::format("{}.{}", files_++, extension).c_str()); }

  /// A table whose colours run straight from one corner to the next.
  void addTable(Chain& chain) {
    std::array<std::array<double, 3>, 8> corners{};
    const std::string name = nextFile("cube");
    std::ofstream table(name);
    table << "LUT_3D_SIZE 2\n";
    for (auto& corner : corners) {
      for (double& component : corner) component = below(256) / 255.0;
      table << corner[0] << ' ' << corner[1] << ' ' << corner[2] << '\n';
    }
    chain.options += " --lut " + name;
    for (Rgba& color : chain.picture.colors) {
      Rgba recoloured{0, 0, 0, color[3]};
      for (std::size_t corner = 0; corner < corners.size(); ++corner) {
        double share = 1;
        for (std::size_t axis = 0; axis < 3; ++axis) share *= (corner >> axis & 1U) ? color[axis] : 1 - color[axis];
        for (std::size_t i = 0; i < 3; ++i) recoloured[i] += share * corners[corner][i];
      }
      color = recoloured;
    }
  }

  /// A half-transparent sticker, pixel on pixel, that may reach beyond the picture.
  void addSticker(Chain& chain) {
    const int width = 16 + below(60);
    const int height = 16 + below(60);
    const int tint = below(200);
    const ReferencePicture sticker(width, height, [&](int x, int y) {
      return Rgba{tint / 255.0, x / 80.0, y / 80.0, std::round(255.0 * (x + y) / (width + height)) / 255};
    });
    const std::string name = nextFile("png");
    const test::Picture bytes(width, height, [&](int x, int y) {
      const Rgba& color = sticker.clampedAt(x, y);
      const auto byte = [&](std::size_t i) { return static_cast<int>(std::lround(color[i] * 255)); };
      return test::Pixel{byte(0), byte(1), byte(2), byte(3)};
    });
    EXPECT_TRUE(ImageDestination::write(test::imageOf(bytes), name).has_value());
    const int left = below(chain.picture.width) - width / 3;
    const int top = below(chain.picture.height) - height / 3;
    chain.options += fmt::format(" --sticker {}@{},{},{},{}", name, left, top, width, height);
    for (int y = std::max(0, top); y < std::min(chain.picture.height, top + height); ++y) {
      for (int x = std::max(0, left); x < std::min(chain.picture.width, left + width); ++x) {
        const test::Pixel& above = bytes.at(x - left, y - top);
        Rgba& color = chain.picture.colors[static_cast<std::size_t>(y * chain.picture.width + x)];
        const std::array<int, 3> components = {above.r, above.g, above.b};
        for (std::size_t i = 0; i < 3; ++i) color[i] += (components[i] / 255.0 - color[i]) * above.a / 255;
      }
    }
  }

  void addCrop(Chain& chain) {
    const int width = chain.picture.width / 2 + below(chain.picture.width / 2);
    const int height = chain.picture.height / 2 + below(chain.picture.height / 2);
    const int left = below(chain.picture.width - width + 1);
    const int top = below(chain.picture.height - height + 1);
    const auto share = [](int part, int whole) { return static_cast<double>(part) / whole; };
    chain.options += fmt::format(" --crop {:.9f},{:.9f},{:.9f},{:.9f}", share(left, chain.picture.width),
                                 share(top, chain.picture.height), share(width, chain.picture.width),
                                 share(height, chain.picture.height));
    const ReferencePicture whole = chain.picture;
    chain.picture = {width, height, [&](int x, int y) { return whole.clampedAt(left + x, top + y); }};
  }

  void addTurn(Chain& chain) {
    const int mode = below(8);
    chain.options += fmt::format(" --rotate {}", mode);
    chain.picture = chain.picture.turned(static_cast<TavrelGPUImageRotationMode>(mode));
  }

  int files_ = 0;
};

TEST_F(RandomChainsTest, PicturesAreWhatTheMathematicsSay) {
  ASSERT_TRUE(ImageDestination::write(test::imageOf(test::noisePicture(160, 120, false)), file("in.png")).has_value());
  for (int i = 0; i < 30; ++i) {
    const Chain chain = this->chain(test::noisePicture(160, 120, false));
    const test::CommandResult result = test::tavrel("filter " + file("in.png") + " " + file("out.png") + chain.options);
    ASSERT_EQ(result.status, 0) << chain.options << result.output;
    const auto written = ImageSource::createWithFile(file("out.png")).value()->imageAtIndex(0).value();
    EXPECT_LE(errorOf(test::pictureOf(*written), chain.picture).largest, 2) << chain.options;
  }
}

}  // namespace
}  // namespace tavrel
