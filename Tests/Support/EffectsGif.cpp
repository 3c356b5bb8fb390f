#include "Support/EffectsGif.h"

#include <gif_lib.h>

#include <array>
#include <cstdlib>
#include <cstring>
#include <memory>
#include <random>
#include <stdexcept>
#include <string_view>

#include "Platform/Imaging/DataProvider.h"

namespace tavrel::test {
namespace {

// Where each letter stands in a palette; the two differ, so that the wrong one shows.
constexpr std::string_view kGlobalLetters = "rgbwk...";
constexpr std::string_view kLocalLetters = "k.wbgr..";

GifColorType colorOf(char letter) {
  switch (letter) {
    case 'r': return {255, 0, 0};
    case 'g': return {0, 255, 0};
    case 'b': return {0, 0, 255};
    case 'w': return {255, 255, 255};
    case 'k': return {0, 0, 0};
    default: return {255, 0, 255};  // seen only where transparency is missed
  }
}

using ColorMap = std::unique_ptr<ColorMapObject, void (*)(ColorMapObject*)>;

ColorMap colorMapOf(std::string_view letters) {
  std::array<GifColorType, 8> colors;
  for (std::size_t i = 0; i < colors.size(); ++i) colors[i] = colorOf(letters[i]);
  return {GifMakeMapObject(8, colors.data()), &GifFreeMapObject};
}

void require(int result) {
  if (result == GIF_ERROR) throw std::runtime_error("giflib cannot write this");
}

void putFrame(GifFileType* file, const GifFrameSpec& frame) {
  const std::string_view letters = frame.hasLocalPalette ? kLocalLetters : kGlobalLetters;
  if (frame.hasControl) {
    const GraphicsControlBlock control = {.DisposalMode = frame.disposal,
                                          .UserInputFlag = false,
                                          .DelayTime = frame.delay,
                                          .TransparentColor = static_cast<int>(letters.find('.'))};
    GifByteType bytes[4];
    EGifGCBToExtension(&control, bytes);
    require(EGifPutExtension(file, GRAPHICS_EXT_FUNC_CODE, sizeof bytes, bytes));
  }
  const ColorMap map = frame.hasLocalPalette ? colorMapOf(kLocalLetters) : ColorMap(nullptr, &GifFreeMapObject);
  const int width = static_cast<int>(frame.rows[0].size());
  const int height = static_cast<int>(frame.rows.size());
  require(EGifPutImageDesc(file, frame.left, frame.top, width, height, frame.isInterlaced, map.get()));
  constexpr int kFirst[] = {0, 4, 2, 1};
  constexpr int kStep[] = {8, 8, 4, 2};
  std::vector<GifPixelType> row(static_cast<std::size_t>(width));
  for (int pass = 0; pass < (frame.isInterlaced ? 4 : 1); ++pass) {
    for (int y = frame.isInterlaced ? kFirst[pass] : 0; y < height; y += frame.isInterlaced ? kStep[pass] : 1) {
      const std::string& drawn = frame.rows[static_cast<std::size_t>(y)];
      for (std::size_t x = 0; x < row.size(); ++x) row[x] = static_cast<GifPixelType>(letters.find(drawn[x]));
      require(EGifPutLine(file, row.data(), width));
    }
  }
  // giflib loses its copy of the palette when the next frame has none.
  GifFreeMapObject(file->Image.ColorMap);
  file->Image.ColorMap = nullptr;
}

}  // namespace

Data makeGif(int width, int height, const std::vector<GifFrameSpec>& frames, std::optional<int> loopCount) {
  Data output;
  const auto write = [](GifFileType* file, const GifByteType* bytes, int size) {
    auto* const data = static_cast<Data*>(file->UserData);
    data->insert(data->end(), bytes, bytes + size);
    return size;
  };
  GifFileType* const file = EGifOpen(&output, write, nullptr);
  EGifSetGifVersion(file, true);
  require(EGifPutScreenDesc(file, width, height, 8, 0, colorMapOf(kGlobalLetters).get()));
  if (loopCount) {
    const GifByteType value[] = {1, static_cast<GifByteType>(*loopCount & 0xFF),
                                 static_cast<GifByteType>(*loopCount >> 8)};
    require(EGifPutExtensionLeader(file, APPLICATION_EXT_FUNC_CODE));
    require(EGifPutExtensionBlock(file, 11, "NETSCAPE2.0"));
    require(EGifPutExtensionBlock(file, sizeof value, value));
    require(EGifPutExtensionTrailer(file));
  }
  for (const GifFrameSpec& frame : frames) putFrame(file, frame);
  require(EGifCloseFile(file, nullptr));
  return output;
}

Data makePlainGif(int width, int height, const std::vector<GifFrameSpec>& times) {
  std::vector<GifFrameSpec> frames = times;
  for (std::size_t i = 0; i < frames.size(); ++i) {
    const std::string row(static_cast<std::size_t>(width), "rgbwk"[i % 5]);
    frames[i].rows.assign(static_cast<std::size_t>(height), row);
  }
  return makeGif(width, height, frames);
}

std::string lettersOf(const Image& image) {
  std::string letters;
  for (std::size_t y = 0; y < image.height(); ++y) {
    if (y > 0) letters += '/';
    for (std::size_t x = 0; x < image.width(); ++x) {
      const std::uint8_t* const pixel = image.dataProvider()->bytes().data() + y * image.bytesPerRow() + x * 4;
      char found = '?';
      for (const char letter : std::string_view("rgbwk")) {
        const GifColorType color = colorOf(letter);
        const std::uint8_t bytes[] = {color.Blue, color.Green, color.Red, 255};
        if (std::memcmp(pixel, bytes, 4) == 0) found = letter;
      }
      constexpr std::uint8_t kClear[4] = {};
      letters += std::memcmp(pixel, kClear, 4) == 0 ? '.' : found;
    }
  }
  return letters;
}

std::vector<GifFrameSpec> randomGifFrames(unsigned seed, int width, int height, int count) {
  std::mt19937 random(seed);
  const auto upTo = [&](int limit) { return static_cast<int>(random() % static_cast<unsigned>(limit)); };
  std::vector<GifFrameSpec> frames(static_cast<std::size_t>(count));
  const GifFrameSpec* last = nullptr;  // with a control block
  for (GifFrameSpec& frame : frames) {
    frame.left = upTo(width);
    frame.top = upTo(height);
    if (upTo(4) == 0) frame.left = frame.top = 0;
    const int columns = frame.left == 0 ? width : 1 + upTo(width - frame.left);
    const int lines = frame.top == 0 ? height : 1 + upTo(height - frame.top);
    frame.disposal = upTo(4);
    frame.delay = upTo(30);
    // Decoders differ in what a missing control block means: nothing, or what the one before it said of disposal. They
    // also differ in what lies beside a first frame without transparency.
    frame.hasControl = !last || last->disposal > 1 || upTo(5) != 0;
    if (frame.hasControl) last = &frame;
    frame.isInterlaced = upTo(2) == 0;
    frame.hasLocalPalette = upTo(3) == 0;
    // Runs of a colour, as in drawn pictures; holes only where there is a control block to declare them.
    const std::string_view letters = frame.hasControl ? "rgbwk.." : "rgbwk";
    char letter = 'r';
    for (int y = 0; y < lines; ++y) {
      std::string& row = frame.rows.emplace_back();
      for (int x = 0; x < columns; ++x) {
        if (upTo(3) == 0) letter = letters[static_cast<std::size_t>(upTo(static_cast<int>(letters.size())))];
        row += letter == '.' && !frame.hasControl ? 'r' : letter;
      }
    }
  }
  return frames;
}

std::size_t gifFrameData(const Data& gif, std::size_t index) {
  std::size_t position = 13 + (gif[10] & 0x80 ? std::size_t{3} << ((gif[10] & 7) + 1) : 0);
  const auto skipBlocks = [&] {
    while (gif.at(position) != 0) position += gif[position] + std::size_t{1};
    ++position;
  };
  for (;;) {
    if (gif.at(position) == 0x21) {
      position += 2;
      skipBlocks();
      continue;
    }
    if (gif.at(position) != 0x2C) throw std::runtime_error("there is no such frame");
    const std::uint8_t flags = gif.at(position + 9);
    position += 10 + (flags & 0x80 ? std::size_t{3} << ((flags & 7) + 1) : 0) + 1;
    if (index-- == 0) return position;
    skipBlocks();
  }
}

void damageGifFrame(Data& gif, std::size_t index) {
  const std::size_t block = gifFrameData(gif, index);
  for (std::size_t i = 1; i <= gif[block]; ++i) gif[block + i] = 0xFF;
}

}  // namespace tavrel::test
