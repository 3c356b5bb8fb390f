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
    EXPECT_LE(errorOf(test::pictureOf(*written), chain.picture).largest, 1) << chain.options;
  }
}

/// The largest difference of the movie's luma and chroma from those of `expected`, converted as encoders' inputs are:
/// in limited range by the matrix of standard definition, with weights of eight bits, and each chroma sample the mean
/// of four pixels.
int errorOfMovie(const std::string& movie, const std::string& planes, const ReferencePicture& expected) {
  const int width = expected.width;
  const int height = expected.height;
  EXPECT_EQ(test::probe("-select_streams v -show_entries stream=pix_fmt,color_range,color_space -of csv=p=0 " + movie),
            std::vector<std::string>{"yuv420p,tv,smpte170m"});
  EXPECT_EQ(test::shell("ffmpeg -v error -y -i " + movie + " -frames:v 1 -f rawvideo " + planes).output, "");
  std::ifstream file(planes, std::ios::binary);
  const std::string seen(std::istreambuf_iterator<char>(file), {});
  if (seen.size() != static_cast<std::size_t>(width * height * 3 / 2)) return 255;

  int largest = 0;
  const auto compare = [&](int place, int value) {
    largest = std::max(largest, std::abs(static_cast<std::uint8_t>(seen[static_cast<std::size_t>(place)]) - value));
  };
  const auto byteOf = [&](int x, int y, std::size_t component) {
    return static_cast<int>(std::lround(expected.clampedAt(x, y)[component] * 255));
  };
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) {
      compare(y * width + x,
              (66 * byteOf(x, y, 0) + 129 * byteOf(x, y, 1) + 25 * byteOf(x, y, 2) + 16 * 256 + 128) / 256);
    }
  }
  for (int y = 0; y < height / 2; ++y) {
    for (int x = 0; x < width / 2; ++x) {
      std::array<int, 3> mean{};
      for (std::size_t c = 0; c < 3; ++c) {
        for (int i = 0; i < 4; ++i) mean[c] += byteOf(2 * x + i % 2, 2 * y + i / 2, c);
        mean[c] = (mean[c] + 2) / 4;
      }
      const int place = width * height + y * (width / 2) + x;
      compare(place, (112 * mean[2] - 74 * mean[1] - 38 * mean[0] + 128 * 256 + 128) / 256);
      compare(place + width * height / 4, (112 * mean[0] - 94 * mean[1] - 18 * mean[2] + 128 * 256 + 128) / 256);
    }
  }
  return largest;
}

TEST_F(RandomChainsTest, MoviesAreWhatTheMathematicsSay) {
  const test::Picture blocks(320, 240, [](int x, int y) {
    const int block = x / 40 * 7 + y / 40 * 3;
    return test::Pixel{block * 37 % 256, block * 59 % 256, block * 83 % 256, 255};
  });
  ASSERT_TRUE(ImageDestination::write(test::imageOf(blocks), file("in.png")).has_value());
  ASSERT_EQ(test::shell("ffmpeg -v error -loop 1 -r 20 -t 0.5 -i " + file("in.png") + " -pix_fmt rgb24 -c:v png " +
                        file("in.mov"))
                .output,
            "");
  // So many bits that the encoder loses nothing to speak of.
  const std::string commands[] = {"transcode --bitrate 20M " + file("in.mov") + " " + file("out.mov"),
                                  "record --bitrate 20M " + file("out.mov") + " --camera file:" + file("in.mov") +
                                      " --microphone none --size 320x240 --duration 0.5"};
  for (int i = 0; i < 30; ++i) {
    const Chain chain = this->chain(blocks, true);
    for (const std::string& command : commands) {
      std::filesystem::remove(file("out.mov"));
      const test::CommandResult result = test::tavrel(command + chain.options);
      ASSERT_EQ(result.status, 0) << command << chain.options << result.output;
      EXPECT_LE(errorOfMovie(file("out.mov"), file("out.yuv"), chain.picture), 2) << command << chain.options;
    }
  }
}

}  // namespace
}  // namespace tavrel
