#include <gtest/gtest.h>
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <fstream>
#include <random>
#include <set>
#include <thread>

#include "Platform/Imaging/ImageSource.h"
#include "Platform/Imaging/ImagingError.h"
#include "Support/EffectsGif.h"

namespace tavrel::test {
namespace {

using Frames = std::vector<std::string>;

std::string frameOf(ImageSource& source, std::size_t index) {
  const auto image = source.imageAtIndex(index);
  return image ? lettersOf(**image) : image.error().description;
}

Frames framesOf(const Data& gif) {
  const auto source = ImageSource::create(gif);
  if (!source) return {source.error().description};
  Frames frames;
  for (std::size_t i = 0; i < (*source)->count(); ++i) frames.push_back(frameOf(**source, i));
  return frames;
}

/// What ImageMagick makes of the file: all frames one after the other as R, G, B, A bytes.
Data coalesced(const Data& gif) {
  const auto folder = std::filesystem::temp_directory_path() / ("tavrel-gif-" + std::to_string(getpid()));
  std::filesystem::create_directories(folder);
  std::ofstream(folder / "a.gif", std::ios::binary).write(reinterpret_cast<const char*>(gif.data()), std::ssize(gif));
  const std::string command =
      "convert '" + (folder / "a.gif").string() + "' -coalesce -depth 8 rgba:'" + (folder / "frames").string() + "'";
  EXPECT_EQ(std::system(command.c_str()), 0) << "needs ImageMagick's convert";
  Data frames = readFile(folder / "frames").value_or(Data{});
  std::filesystem::remove_all(folder);
  return frames;
}

void expectLikeCoalesced(const Data& gif, std::size_t frameCount) {
  const auto source = ImageSource::create(gif).value();
  ASSERT_EQ(source->count(), frameCount);
  const Data expected = coalesced(gif);
  std::size_t position = 0;
  for (std::size_t frame = 0; frame < frameCount; ++frame) {
    const auto image = source->imageAtIndex(frame).value();
    const auto bytes = image->dataProvider()->bytes();
    ASSERT_LE(position + bytes.size(), expected.size()) << "ImageMagick has fewer frames";
    for (std::size_t i = 0; i < bytes.size(); i += 4, position += 4) {
      const std::uint8_t* const wanted = expected.data() + position;
      const std::array<int, 4> pixel = {bytes[i + 2], bytes[i + 1], bytes[i], bytes[i + 3]};
      // Colours under no cover are of no meaning.
      const bool isClear = wanted[3] == 0;
      const std::array<int, 4> wantedPixel = {isClear ? 0 : wanted[0], isClear ? 0 : wanted[1], isClear ? 0 : wanted[2],
                                              wanted[3]};
      ASSERT_EQ(pixel, wantedPixel) << "frame " << frame << ", pixel " << i / 4;
    }
  }
  EXPECT_EQ(position, expected.size());
}

TEST(GifSource, EqualsWhatAnotherDecoderMakesOfTheFrames) {
  for (unsigned seed = 1; seed <= 12; ++seed) {
    SCOPED_TRACE(seed);
    const std::vector<GifFrameSpec> frames = randomGifFrames(seed, 23, 17, 12);
    expectLikeCoalesced(makeGif(23, 17, frames, 0), frames.size());
  }
  expectLikeCoalesced(makeGif(40, 30, randomGifFrames(99, 40, 30, 500)), 500);
  expectLikeCoalesced(makeGif(3, 3, randomGifFrames(7, 3, 3, 1)), 1);
}

TEST(GifSource, ComposesFramesAsTheyAreSeen) {
  const Data gif = makeGif(4, 2,
                           {{.rows = {"rrrr", "rrrr"}},
                            {.rows = {"gg"}, .left = 1, .disposal = 2},           // then clear
                            {.rows = {"b.b"}, .top = 1, .disposal = 3},           // then as before
                            {.rows = {"g"}, .left = 3, .top = 1, .disposal = 0},  // unspecified: stays
                            {.rows = {"bb", ".b"}, .left = 3, .disposal = 2},     // partly outside
                            {.rows = {"r"}, .left = 9, .top = 9},                 // quite outside
                            {.rows = {"bgr."}, .hasLocalPalette = true}});
  const Frames wanted = {"rrrr/rrrr", "rggr/rrrr", "r..r/brbr", "r..r/rrrg", "r..b/rrrg", "r.../rrr.", "bgr./rrr."};
  EXPECT_EQ(framesOf(gif), wanted);
  // Any order gives the same pictures.
  const auto source = ImageSource::create(gif).value();
  for (const std::size_t index : {3U, 1U, 2U, 2U, 6U, 0U, 4U, 5U, 3U, 6U}) {
    EXPECT_EQ(frameOf(*source, index), wanted[index]);
  }
  EXPECT_FALSE(source->imageAtIndex(7).has_value());
}

TEST(GifSource, RestoresWhatWasThereBeforeARestoredFrame) {
  EXPECT_EQ(framesOf(makeGif(2, 1,
                             {{.rows = {"rr"}, .disposal = 3},  // restores the empty screen
                              {.rows = {".g"}},
                              {.rows = {"bb"}, .disposal = 3},  // covers all, yet what was there comes back
                              {.rows = {"r"}, .disposal = 3},
                              {.rows = {"b"}}})),
            (Frames{"rr", ".g", "bb", "rg", "bg"}));
  // A control block is for one frame only.
  EXPECT_EQ(framesOf(makeGif(2, 1,
                             {{.rows = {"rr"}, .disposal = 1},
                              {.rows = {"g"}, .disposal = 2},
                              {.rows = {"b"}, .left = 1, .hasControl = false},
                              {.rows = {"w"}, .hasControl = false}})),
            (Frames{"rr", "gr", ".b", "wb"}));
  const Data late = makeGif(2, 1, {{.rows = {".g"}}, {.rows = {"bb"}, .disposal = 3}, {.rows = {"r"}}});
  EXPECT_EQ(frameOf(*ImageSource::create(late).value(), 2), "rg") << "asked for first";
}

TEST(GifSource, TellsTimesAndLoops) {
  const auto source = ImageSource::create(makeGif(3, 2,
                                                  {{.rows = {"r"}, .delay = 7},
                                                   {.rows = {"r"}, .delay = 4},
                                                   {.rows = {"r"}, .hasControl = false},
                                                   {.rows = {"r"}, .delay = 0}},
                                                  300))
                          .value();
  EXPECT_EQ(source->loopCount(), 300);
  EXPECT_EQ(source->properties(0).width, 3U);
  EXPECT_EQ(source->properties(0).unclampedDelayTime, 0.07);
  EXPECT_EQ(source->properties(0).delayTime, 0.07);
  EXPECT_EQ(source->properties(1).unclampedDelayTime, 0.04);
  EXPECT_EQ(source->properties(1).delayTime, 0.1);
  EXPECT_FALSE(source->properties(2).unclampedDelayTime || source->properties(2).delayTime);
  EXPECT_EQ(source->properties(3).unclampedDelayTime, 0.0);
  EXPECT_FALSE(ImageSource::create(makeGif(1, 1, {{.rows = {"r"}}})).value()->loopCount());
  EXPECT_EQ(ImageSource::create(makeGif(1, 1, {{.rows = {"r"}}}, 0)).value()->loopCount(), 0);
}

/// True when `letters` are `drawn` up to some place and `under` from there on; `length` is the place.
bool isPartOf(const std::string& drawn, const std::string& under, const std::string& letters, std::size_t& length) {
  if (letters.size() != drawn.size()) return false;
  for (length = drawn.size(); length > 0; --length) {
    if (letters == drawn.substr(0, length) + under.substr(length)) return true;
  }
  return false;
}

TEST(GifSource, ShowsWhatThereIsBeforeACutAtAnyByte) {
  const Data whole = makeGif(3, 2, {{.rows = {"rgb", "bgr"}}, {.rows = {"bwg", "wkr"}}, {.rows = {".r", "gg"}}}, 0);
  const Frames wanted = {"rgb/bgr", "bwg/wkr", "brg/ggr"};
  ASSERT_EQ(framesOf(whole), wanted);
  const Frames under = {".../...", wanted[0], wanted[1]};
  std::size_t count = 0;
  std::set<std::pair<std::size_t, std::size_t>> parts;
  for (std::size_t size = 0; size < whole.size(); ++size) {
    const auto source = ImageSource::create(Data(whole.begin(), whole.begin() + static_cast<std::ptrdiff_t>(size)));
    if (!source) {
      ASSERT_EQ(count, 0U) << size;
      const std::string& text = source.error().description;
      ASSERT_TRUE(text == "the data is damaged: it is cut off" || text == "the data is empty" ||
                  text == "the data is damaged: it has no frame that can be read" ||
                  text.find("the data is not a ") == 0)
          << size << ": " << text;
      continue;
    }
    ASSERT_GE((*source)->count(), std::max<std::size_t>(count, 1));
    count = (*source)->count();
    for (std::size_t i = 0; i + 1 < count; ++i) ASSERT_EQ(frameOf(**source, i), wanted[i]) << size;
    std::size_t length = 0;
    ASSERT_TRUE(isPartOf(wanted[count - 1], under[count - 1], frameOf(**source, count - 1), length))
        << size << ": " << frameOf(**source, count - 1);
    parts.emplace(count, length);
  }
  EXPECT_EQ(count, 3U) << "only the trailer is missing";
  EXPECT_GT(parts.size(), 6U) << "frames are seen in part";
}

TEST(GifSource, ShowsDamagedFramesAsFarAsTheyGo) {
  Data gif = makeGif(2, 2, {{.rows = {"rr", "rr"}}, {.rows = {"gg", "gg"}}, {.rows = {"b"}}, {.rows = {"bb", "bb"}}});
  damageGifFrame(gif, 1);
  const auto source = ImageSource::create(gif).value();
  ASSERT_EQ(source->count(), 4U);
  for (std::size_t i = 0; i < 5; ++i) EXPECT_EQ(source->holdsPicture(i), i != 1 && i < 4) << i;
  for (int round = 0; round < 2; ++round) {
    EXPECT_EQ(frameOf(*source, 0), "rr/rr");
    EXPECT_EQ(frameOf(*source, 1).find("the data is damaged in frame 1: "), 0U) << "nothing of it can be read";
    EXPECT_EQ(frameOf(*source, 1).find("the data is damaged in frame 1: "), 0U) << "asked again";
    EXPECT_EQ(frameOf(*source, 2), "br/rr");
    EXPECT_EQ(frameOf(*source, 3), "bb/bb");
  }
  // A frame that has fewer pixels than it says: what was there before shows through, however one comes to it.
  Data longer = makeGif(2, 3,
                        {{.rows = {"rg", "br", "gg"}, .hasControl = false},
                         {.rows = {"wk", "wk"}, .hasControl = false},
                         {.rows = {"b"}, .hasControl = false}});
  const std::size_t height = gifFrameData(longer, 1) - 4;
  ASSERT_EQ(longer[height], 2);
  longer[height] = 3;
  const auto holed = ImageSource::create(longer).value();
  for (const std::size_t index : {2U, 1U, 2U, 0U, 1U}) {
    const Frames wanted = {"rg/br/gg", "wk/wk/gg", "bk/wk/gg"};
    EXPECT_EQ(frameOf(*holed, index), wanted[index]);
  }
}

TEST(GifSource, AnyFrameIsNearOnceCheckPointsAreThere) {
  const Data gif = makeGif(120, 90, randomGifFrames(5, 120, 90, 300));
  const auto inOrder = ImageSource::create(gif).value();
  std::vector<Data> wanted;
  for (std::size_t i = 0; i < 300; ++i) {
    wanted.push_back(inOrder->imageAtIndex(i).value()->dataProvider()->copyData());
  }
  const auto source = ImageSource::create(gif).value();
  int steps = 0;
  while (source->prepareJumps()) ++steps;
  EXPECT_GT(steps, 10);
  std::mt19937 random(3);
  for (int i = 0; i < 200; ++i) {
    const std::size_t index = random() % 300;
    ASSERT_EQ(source->imageAtIndex(index).value()->dataProvider()->copyData(), wanted[index]) << index;
  }
  const auto costOf = [](ImageSource& from, std::size_t index) {
    EXPECT_TRUE(from.imageAtIndex(0));
    const std::clock_t start = std::clock();
    EXPECT_TRUE(from.imageAtIndex(index));
    return std::clock() - start;
  };
  const auto fresh = ImageSource::create(gif).value();
  EXPECT_LT(costOf(*source, 299) * 5, costOf(*fresh, 299));
}

TEST(GifSource, CanBeGivenUp) {
  const auto source = ImageSource::create(makeGif(600, 600, randomGifFrames(5, 600, 600, 40))).value();
  std::atomic<bool> isDecoding = false;
  std::thread other([&] {
    for (std::size_t i = 0;; ++i) {
      isDecoding = true;
      const auto image = source->imageAtIndex(i % 2 == 0 ? 39 : 0);
      if (image) continue;
      EXPECT_EQ(image.error().code, static_cast<std::int64_t>(ImagingErrorCode::givenUp));
      return;
    }
  });
  while (!isDecoding) std::this_thread::yield();
  source->giveUp();
  other.join();
  EXPECT_FALSE(source->imageAtIndex(0));
}

/// Bytes of a line of the kernel's /proc/self/status: "VmRSS" for what is in memory now, "VmHWM" for the most there
/// was.
std::size_t memory(const std::string& line) {
  std::ifstream status("/proc/self/status");
  for (std::string word; status >> word;) {
    std::size_t kibibytes = 0;
    if (word == line + ":" && status >> kibibytes) return kibibytes * 1024;
  }
  ADD_FAILURE() << "no " << line;
  return 0;
}

TEST(GifSource, ABombCostsNoMoreThanItsFirstFrameToOpenAndIsBounded) {
  constexpr int kSide = 3000;
  const Data one = makePlainGif(kSide, kSide, {{}});
  const auto begin = one.begin() + 13 + (std::ptrdiff_t{3} << ((one[10] & 7) + 1));
  Data bomb(one.begin(), begin);
  while (bomb.size() < 950'000) bomb.insert(bomb.end(), begin, one.end() - 1);
  bomb.push_back(';');
  std::shared_ptr<ImageSource> source;
  const auto costOfOpening = [&](const Data& gif) {
    const auto start = std::clock();
    source = ImageSource::create(gif).value();
    EXPECT_TRUE(source->imageAtIndex(0));
    return std::clock() - start;
  };
  const auto costOfOne = costOfOpening(one);
  source.reset();
  std::ofstream("/proc/self/clear_refs") << "5\n";  // the most begins anew
  const std::size_t before = memory("VmRSS");
  EXPECT_LT(costOfOpening(bomb), 3 * costOfOne);
  EXPECT_GT(source->count(), 50U);
  EXPECT_LE(source->count(), ImageSource::kMostPixelsOfAnimationFrames / (std::size_t{kSide} * kSide));

  const auto start = std::clock();
  std::thread other([&] { source->imageAtIndex(source->count() - 1); });
  std::this_thread::sleep_for(std::chrono::milliseconds(20));
  source->giveUp();
  other.join();
  EXPECT_LT(std::clock() - start, 10 * costOfOne);
  EXPECT_LT(memory("VmHWM"), before + 12 * std::size_t{kSide} * kSide * 4) << "of more than fifty frames";
}

/// Sizes in the header are lies; the rest of the file stays as it is.
Data withScreen(Data gif, int width, int height) {
  gif[6] = static_cast<std::uint8_t>(width);
  gif[7] = static_cast<std::uint8_t>(width >> 8);
  gif[8] = static_cast<std::uint8_t>(height);
  gif[9] = static_cast<std::uint8_t>(height >> 8);
  return gif;
}

TEST(GifSource, AScreenThatIsTooSmallForTheFirstFrameGrows) {
  const Data gif = makeGif(2, 2, {{.rows = {"rg", "br"}}, {.rows = {"w"}, .left = 1}, {.rows = {"kkk"}, .top = 1}});
  const Frames wanted = {"rg/br", "rw/br", "rw/kk"};
  for (const auto& [width, height] : {std::pair(0, 0), {0, 2}, {2, 0}, {1, 1}, {2, 2}}) {
    EXPECT_EQ(framesOf(withScreen(gif, width, height)), wanted) << width << "x" << height;
  }
  EXPECT_EQ(framesOf(withScreen(makeGif(3, 3, {{.rows = {"r"}, .left = 1, .top = 1}}), 0, 0)), Frames{"../.r"});
}

TEST(GifSource, RefusesWhatWouldTakeTooMuchMemoryOrTime) {
  const auto start = std::chrono::steady_clock::now();
  const Data small = makeGif(2, 1, {{.rows = {"rg"}}, {.rows = {"gr"}}});
  EXPECT_EQ(ImageSource::create(withScreen(small, 65535, 65535)).error().description,
            "the data is too large: 65535x65535, the most is 268435456 pixels");
  EXPECT_EQ(ImageSource::create(withScreen(small, 16000, 16000)).error().description,
            "the data is too large: 16000x16000, the most is 67108864 pixels for an animation");
  // A frame that promises 65535 × 65535 on a small screen: those before it are kept.
  Data largeFrame = small;
  const std::size_t flags = gifFrameData(largeFrame, 1) - 2;
  for (std::size_t i = flags - 4; i < flags; ++i) largeFrame[i] = 0xFF;
  EXPECT_EQ(framesOf(largeFrame), Frames{"rg"});

  // A tiny frame many times over on a screen of 8192 × 8192: 64 pictures are as much as an animation may have.
  const Data many = makeGif(8192, 8192, std::vector<GifFrameSpec>(3000, {.rows = {"r"}}));
  EXPECT_EQ(ImageSource::create(many).value()->count(), 64U);

  // Comments and empty applications without end.
  Data endless = makeGif(1, 1, {{.rows = {"r"}}});
  endless.pop_back();
  for (int i = 0; i < 200000; ++i) endless.insert(endless.end(), {0x21, 0xFE, 1, 'x', 1, 'y', 0, 0x21, 0xFF, 0});
  endless.insert(endless.end(), {0x21, 0xFE});
  for (int i = 0; i < 500000; ++i) endless.insert(endless.end(), {1, 'z'});
  EXPECT_EQ(framesOf(endless), Frames{"r"});
  EXPECT_LT(std::chrono::steady_clock::now() - start, std::chrono::seconds(20));
}

}  // namespace
}  // namespace tavrel::test
