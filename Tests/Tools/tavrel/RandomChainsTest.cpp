#include <fmt/format.h>

#include <algorithm>
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
  Chain chain(const test::Picture& picture, bool keepsSize = false) {
    Chain chain{"", ReferencePicture(picture)};
    const int length = 3 + below(4);
    for (int i = 0; i < length; ++i) {
      switch (i < 2 ? below(2) : below(keepsSize ? 3 : 5)) {
        case 0: addTable(chain); break;
        case 1: addSticker(chain); break;
        case 2: addTurn(chain, kTavrelGPUImageFlipHorizontal); break;
        case 3: addTurn(chain, static_cast<TavrelGPUImageRotationMode>(below(8))); break;
        default: addCrop(chain);
      }
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
    // From black's corner along the largest component first, and along the smallest last.
    for (Rgba& color : chain.picture.colors) {
      std::array<std::size_t, 3> axes = {0, 1, 2};
      std::sort(axes.begin(), axes.end(),
                [&](std::size_t one, std::size_t other) { return color[one] > color[other]; });
      Rgba recoloured{0, 0, 0, color[3]};
      std::size_t corner = 0;
      double left = 1;
      for (std::size_t i = 0; i <= axes.size(); ++i) {
        const double next = i < axes.size() ? color[axes[i]] : 0;
        for (std::size_t c = 0; c < 3; ++c) recoloured[c] += (left - next) * corners[corner][c];
        left = next;
        if (i < axes.size()) corner |= std::size_t{1} << axes[i];
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

  void addTurn(Chain& chain, TavrelGPUImageRotationMode mode) {
    chain.options += fmt::format(" --rotate {}", static_cast<int>(mode));
    chain.picture = chain.picture.turned(mode);
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
    // A table adds up what its components' inputs have been rounded by.
    EXPECT_LE(errorOf(test::pictureOf(*written), chain.picture).largest, 3) << chain.options;
  }
}

struct MovieError {
  double largest = 0;
  double mean = 0;
};

/// How far the movie is from `expected`, away from edges, which subsampled colours soften.
MovieError errorOfMovie(const std::string& movie, const std::string& picture, const ReferencePicture& expected) {
  // Without the movie's transfer function, which the picture would name as a gamma of its own.
  EXPECT_EQ(
      test::shell("ffmpeg -v error -y -ss 0.5 -i " + movie + " -frames:v 1 -vf setparams=color_trc=unknown " + picture)
          .output,
      "");
  const test::Picture seen = test::pictureOf(*ImageSource::createWithFile(picture).value()->imageAtIndex(0).value());
  MovieError error;
  int compared = 0;
  for (int y = 4; y < expected.height - 4; ++y) {
    for (int x = 4; x < expected.width - 4; ++x) {
      const Rgba& color = expected.clampedAt(x, y);
      double contrast = 0;
      for (int i = 0; i < 81; ++i) {
        const Rgba& other = expected.clampedAt(x + i % 9 - 4, y + i / 9 - 4);
        for (std::size_t c = 0; c < 3; ++c) contrast = std::max(contrast, std::abs(other[c] - color[c]));
      }
      if (contrast > 0.02) continue;
      ++compared;
      const test::Pixel& pixel = seen.at(x, y);
      const std::array<int, 3> components = {pixel.r, pixel.g, pixel.b};
      for (std::size_t c = 0; c < 3; ++c) {
        const double difference = std::abs(components[c] - color[c] * 255);
        error.largest = std::max(error.largest, difference);
        error.mean += difference / 3;
      }
    }
  }
  EXPECT_GT(compared, 1000);
  error.mean /= compared;
  return error;
}

// The encoder leaves single pixels off by more than the effects are.
TEST_F(RandomChainsTest, MoviesAreWhatTheMathematicsSay) {
  const test::Picture blocks(320, 240, [](int x, int y) {
    const int block = x / 40 * 7 + y / 40 * 3;
    return test::Pixel{block * 37 % 256, block * 59 % 256, block * 83 % 256, 255};
  });
  ASSERT_TRUE(ImageDestination::write(test::imageOf(blocks), file("in.png")).has_value());
  ASSERT_EQ(test::shell("ffmpeg -v error -loop 1 -r 20 -t 2 -i " + file("in.png") + " -pix_fmt rgb24 -c:v png " +
                        file("in.mov"))
                .output,
            "");
  for (int i = 0; i < 6; ++i) {
    const Chain chain = this->chain(blocks, true);
    const std::string commands[] = {"transcode " + file("in.mov") + " " + file("out.mov"),
                                    "record " + file("out.mov") + " --camera file:" + file("in.mov") +
                                        " --microphone none --size 320x240 --duration 1.5"};
    for (const std::string& command : commands) {
      std::filesystem::remove(file("out.mov"));
      const test::CommandResult result = test::tavrel(command + chain.options);
      ASSERT_EQ(result.status, 0) << command << chain.options << result.output;
      const MovieError error = errorOfMovie(file("out.mov"), file("out.png"), chain.picture);
      EXPECT_LE(error.mean, 2) << command << chain.options;
      EXPECT_LE(error.largest, 30) << command << chain.options;
    }
  }
}

}  // namespace
}  // namespace tavrel
