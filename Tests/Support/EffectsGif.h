#pragma once

#include <optional>
#include <string>
#include <vector>

#include "Platform/Foundation/Data.h"
#include "Platform/Imaging/Image.h"

namespace tavrel::test {

/// A frame drawn with letters: r, g, b, w, k (black) and . for transparent.
struct GifFrameSpec {
  std::vector<std::string> rows = {};
  int left = 0, top = 0;
  int disposal = 1;
  int delay = 10;  ///< in 1/100 s
  bool hasControl = true;
  bool isInterlaced = false;
  bool hasLocalPalette = false;
};

/// A GIF file, written by giflib.
Data makeGif(int width, int height, const std::vector<GifFrameSpec>& frames, std::optional<int> loopCount = {});

/// Frames of one colour each, after one another r, g, b, w and k, with everything else as in `times`.
Data makePlainGif(int width, int height, const std::vector<GifFrameSpec>& times);

/// A picture in the same letters, rows parted by slashes; other colours are question marks.
std::string lettersOf(const Image& image);

/// Frames that use every feature, drawn by chance: parts of the screen, disposals, interlace, palettes, holes.
std::vector<GifFrameSpec> randomGifFrames(unsigned seed, int width, int height, int count);

/// Where the unpacked data of the `index`th frame begins in a file, at the length of its first block.
std::size_t gifFrameData(const Data& gif, std::size_t index);

/// Overwrites that block, so that nothing of the frame can be decoded.
void damageGifFrame(Data& gif, std::size_t index);

}  // namespace tavrel::test
