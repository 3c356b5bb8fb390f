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
  bool hasPixels = false;  ///< at least the first one can be unpacked

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

  /// Told of each frame in turn; false ends the walk.
  using FrameHandler = std::function<bool(const GifFrame& frame)>;
  /// Walks through the file to its end, to the first thing that is broken, or until `onFrame` says so. A frame that is
  /// cut off is the last one. False when not even the screen is whole.
  bool scan(const FrameHandler& onFrame);

  /// As the file says.
  int screenWidth() const { return file_->SWidth; }
  int screenHeight() const { return file_->SHeight; }
  std::optional<int> loopCount() const { return loopCount_; }
  /// Why the walk ended early: "it is cut off", or giflib's words; empty when it came to the end.
  const std::string& reasonOfEnd() const { return reasonOfEnd_; }

  /// Called with each row of a frame, in the order stored: its index from the frame's top, and the row's colours.
  using RowHandler = std::function<bool(int y, std::span<const GifPixelType> row, const GifPalette& palette)>;
  /// Unpacks a frame as far as it is whole, its last row possibly in part, or until `onRow` says false. Gives the
  /// reason when not a pixel can be unpacked.
  std::optional<std::string> readFrame(const GifFrame& frame, const RowHandler& onRow);

 private:
  struct Input {
    std::span<const std::uint8_t> bytes;
    std::size_t position = 0;
    bool isCutOff = false;     ///< more was asked for than there is
    bool isShortened = false;  ///< a block is
    bool readsBlocks = false;
    bool isInBlock = false;

    void shortenBlock(GifByteType& read);
  };
  struct Closer {
    void operator()(GifFileType* file) const { DGifCloseFile(file, nullptr); }
  };

  static int readInput(GifFileType* file, GifByteType* target, int size);
  bool scanRecord(GifRecordType record, std::size_t offset);
  bool scanExtension();
  bool scanFrame(std::size_t offset);
  bool openFrame(const GifFrame& frame);
  bool readRow();
  std::size_t readPartOfRow(const GifFrame& frame, std::size_t rowsBefore);
  void forgetSavedImages();
  std::string describeError() const;

  Input input_;
  std::unique_ptr<GifFileType, Closer> file_;
  const FrameHandler* onFrame_ = nullptr;
  std::optional<GraphicsControlBlock> pendingControl_;
  std::optional<int> loopCount_;
  std::string reasonOfEnd_;
  std::vector<GifPixelType> row_;
};

}  // namespace tavrel
