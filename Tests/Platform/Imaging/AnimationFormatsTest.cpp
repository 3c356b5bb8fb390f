#include <gtest/gtest.h>
#include <unistd.h>

#include <cstdlib>
#include <fstream>
#include <random>

#include "Platform/Imaging/ImageSource.h"

namespace tavrel::test {
namespace {

constexpr std::size_t kWidth = 46, kHeight = 34, kCount = 14;
constexpr std::size_t kFrameSize = kWidth * kHeight * 4;

/// A folder with an animation drawn by chance and what is to be seen of it.
class RandomAnimation {
 public:
  RandomAnimation(const std::string& kind, int seed)
      : folder_(std::filesystem::temp_directory_path() / ("tavrel-animation-" + std::to_string(getpid()))) {
    std::filesystem::create_directories(folder_);
    const std::string command = "/usr/bin/python3 " TAVREL_TESTS_FOLDER "/Support/random_animations.py " + kind + " " +
                                std::to_string(seed) + " '" + folder_.string() + "'";
    EXPECT_EQ(std::system(command.c_str()), 0) << "needs python3-pil, python3-numpy, webp and libavif-bin";
  }
  ~RandomAnimation() { std::filesystem::remove_all(folder_); }

  std::filesystem::path file() const { return folder_ / "animation"; }
  Data bytes() const { return readFile(file()).value_or(Data{}); }
  Data frames() const { return readFile(folder_ / "frames").value_or(Data{}); }
  std::vector<double> times() const {
    std::ifstream file(folder_ / "times");
    return {std::istream_iterator<double>(file), {}};
  }

 private:
  std::filesystem::path folder_;
};

/// How far the picture is from R, G, B, A bytes.
int largestDifference(const Image& image, std::span<const std::uint8_t> wanted) {
  const auto bytes = image.dataProvider()->bytes();
  if (bytes.size() != wanted.size()) return 256;
  int largest = 0;
  for (std::size_t i = 0; i < bytes.size(); i += 4) {
    for (const auto& [ours, theirs] : {std::pair(2, 0), {1, 1}, {0, 2}, {3, 3}}) {
      const std::size_t at = i + static_cast<std::size_t>(theirs);
      largest = std::max(largest, std::abs(bytes[i + static_cast<std::size_t>(ours)] - wanted[at]));
    }
  }
  return largest;
}

void expectAsWorkedOut(const std::string& kind, const char* type, int seeds, int tolerance) {
  for (int seed = 1; seed <= seeds; ++seed) {
    const RandomAnimation animation(kind, seed);
    const auto source = ImageSource::createWithFile(animation.file()).value();
    ASSERT_EQ(source->type(), std::string(type));
    ASSERT_EQ(source->count(), kCount);
    const Data frames = animation.frames();
    const std::vector<double> times = animation.times();
    ASSERT_EQ(frames.size(), kCount * kFrameSize);
    std::mt19937 random(static_cast<unsigned>(seed));
    for (std::size_t i = 0; i < 3 * kCount; ++i) {
      const std::size_t index = i < kCount ? i : random() % kCount;
      const auto image = source->imageAtIndex(index);
      ASSERT_TRUE(image) << image.error().description;
      ASSERT_LE(largestDifference(**image, std::span(frames).subspan(index * kFrameSize, kFrameSize)), tolerance)
          << kind << " " << seed << ", frame " << index;
      ASSERT_NEAR(source->properties(index).unclampedDelayTime.value_or(-1), times[index], 1e-6);
    }
    EXPECT_TRUE(source->loopCount());
  }
}

// Each time that frames are blended rounds.
TEST(AnimationFormats, PngIsShownAsWorkedOut) { expectAsWorkedOut("apng", "image/apng", 16, 3); }

TEST(AnimationFormats, GifIsShownAsWorkedOut) { expectAsWorkedOut("gif", "image/gif", 24, 0); }

#if TAVREL_WITH_WEBP
TEST(AnimationFormats, WebpIsShownAsWorkedOut) { expectAsWorkedOut("webp", "image/webp", 16, 3); }
#endif

#if TAVREL_WITH_AVIF
TEST(AnimationFormats, AvifIsShownAsWorkedOut) { expectAsWorkedOut("avif", "image/avif", 4, 1); }
#endif

TEST(AnimationFormats, AnyCutGivesWhatIsBeforeItOrAReason) {
  std::vector<std::string> kinds = {"apng"};
  if (TAVREL_WITH_WEBP) kinds.push_back("webp");
  if (TAVREL_WITH_AVIF) kinds.push_back("avif");
  for (const std::string& kind : kinds) {
    const RandomAnimation animation(kind, 1);
    const Data whole = animation.bytes();
    std::size_t most = 0;
    for (std::size_t size = 0; size < whole.size(); size += 7) {
      const auto source = ImageSource::create(Data(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
      if (!source) {
        EXPECT_FALSE(source.error().description.empty());
        continue;
      }
      for (std::size_t i = 0; i < (*source)->count(); ++i) {
        const auto image = (*source)->imageAtIndex(i);
        if (image) most = std::max(most, i + 1);
      }
    }
    // libavif wants the whole.
    EXPECT_GE(most, kind == "avif" ? 0 : kCount / 2) << kind;
  }
}

}  // namespace
}  // namespace tavrel::test
