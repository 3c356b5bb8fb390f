#pragma once

#include <gif_lib.h>

#include <array>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <vector>

namespace tavrel {

/// One frame as stored: a part of the screen, and how it is shown.
struct GifFrame {
  std::size_t offset = 0;  ///< of its image record in the file
  int left = 0, top = 0, width = 0, height = 0;
  std::optional<GraphicsControlBlock> control;

  int disposal() const { return control ? control->DisposalMode : DISPOSAL_UNSPECIFIED; }
  int transparentColor() const { return control ? control->TransparentColor : NO_TRANSPARENT_COLOR; }
  std::size_t pixels() const { return static_cast<std::size_t>(width) * static_cast<std::size_t>(height); }
};

/// A pixel for every index that there can be, B, G, R, 255 in memory. Those beyond the file's palette are black.
using GifPalette = std::array<std::uint32_t, 256>;

/// Finds the frames of a GIF without unpacking them, and unpacks them one at a time, through giflib. Lends the bytes.
class GifReader {
 public:
  explicit GifReader(std::span<const std::uint8_t> bytes) : input_{bytes} {}
  GifReader(const GifReader&) = delete;
  GifReader& operator=(const GifReader&) = delete;

  /// Walks through the file to its end, to the first thing that is not whole, or to the frame that would be more than
  /// an animation may have. False when not even the screen is whole or its size is refused by `acceptsScreen`.
  bool scan(const std::function<bool(int width, int height)>& acceptsScreen);

  int screenWidth() const { return file_->SWidth; }
  int screenHeight() const { return file_->SHeight; }
  const std::vector<GifFrame>& frames() const { return frames_; }
  std::optional<int> loopCount() const { return loopCount_; }
  /// Why the walk ended early: "it is cut off", or giflib's words; empty when it came to the end.
  const std::string& reasonOfEnd() const { return reasonOfEnd_; }

  /// Called with each row of a frame, in the order stored: its index from the frame's top, and the row's colours.
  using RowHandler = std::function<void(int y, const GifPixelType* row, const GifPalette& palette)>;
  /// Unpacks a frame; gives the reason when it is damaged, after the rows that are whole.
  std::optional<std::string> readFrame(const GifFrame& frame, const RowHandler& onRow);

 private:
  struct Input {
    std::span<const std::uint8_t> bytes;
    std::size_t position = 0;
    bool isCutOff = false;
  };
  struct Closer {
    void operator()(GifFileType* file) const { DGifCloseFile(file, nullptr); }
  };

  static int readInput(GifFileType* file, GifByteType* target, int size);
  bool scanRecord(GifRecordType record, std::size_t offset);
  bool scanExtension();
  bool scanFrame(std::size_t offset);
  bool isWithinLimits(const GifFrame& frame) const;
  bool readRows(const GifFrame& frame, const GifPalette& palette, const RowHandler& onRow);
  void forgetSavedImages();
  std::string describeError() const;

  Input input_;
  std::unique_ptr<GifFileType, Closer> file_;
  std::vector<GifFrame> frames_;
  std::size_t framePixels_ = 0;
  std::optional<GraphicsControlBlock> pendingControl_;
  std::optional<int> loopCount_;
  std::string reasonOfEnd_;
  std::vector<GifPixelType> row_;
};

}  // namespace tavrel
