#include "Platform/Imaging/Private/GifReader.h"

#include <algorithm>
#include <cstring>
#include <utility>

namespace tavrel {
namespace {

std::uint32_t pixelOf(const GifColorType& color) {
  const std::uint8_t bytes[] = {color.Blue, color.Green, color.Red, 255};
  std::uint32_t pixel = 0;
  std::memcpy(&pixel, bytes, sizeof pixel);
  return pixel;
}

GifPalette paletteOf(const ColorMapObject* map) {
  GifPalette palette;
  palette.fill(pixelOf({0, 0, 0}));
  const int count = map ? std::min<int>(map->ColorCount, static_cast<int>(palette.size())) : 0;
  for (int i = 0; i < count; ++i) palette[static_cast<std::size_t>(i)] = pixelOf(map->Colors[i]);
  return palette;
}

/// Blocks come as giflib hands them out: the length first.
bool isLoopExtension(const GifByteType* block) {
  return block[0] == 11 &&
         (std::memcmp(block + 1, "NETSCAPE2.0", 11) == 0 || std::memcmp(block + 1, "ANIMEXTS1.0", 11) == 0);
}

/// Looks whether the first code that is not the clearing one is that of a colour.
class FirstCode {
 public:
  explicit FirstCode(int colorBits) : clearing_(1U << colorBits), codeBits_(colorBits + 1) {}

  void feed(std::span<const GifByteType> block) {
    for (const GifByteType byte : block) {
      if (isDecided_) return;
      bits_ |= static_cast<unsigned>(byte) << count_;
      for (count_ += 8; count_ >= codeBits_ && !isDecided_; count_ -= codeBits_, bits_ >>= codeBits_) {
        const unsigned code = bits_ & ((1U << codeBits_) - 1);
        isDecided_ = code != clearing_;
        isColor_ = code < clearing_;
      }
    }
  }
  bool isColor() const { return isColor_; }

 private:
  unsigned clearing_, bits_ = 0;
  int codeBits_, count_ = 0;
  bool isDecided_ = false, isColor_ = false;
};

/// The indexes of the rows, from the frame's top, in the order stored.
std::vector<int> rowOrder(int height, bool isInterlaced) {
  struct Pass {
    int first, step;
  };
  static constexpr Pass kWhole[] = {{0, 1}};
  static constexpr Pass kInterlaced[] = {{0, 8}, {4, 8}, {2, 4}, {1, 2}};
  std::vector<int> rows;
  for (const Pass& pass : isInterlaced ? std::span<const Pass>(kInterlaced) : kWhole) {
    for (int y = pass.first; y < height; y += pass.step) rows.push_back(y);
  }
  return rows;
}

}  // namespace

int GifReader::readInput(GifFileType* file, GifByteType* target, int size) {
  auto* const input = static_cast<Input*>(file->UserData);
  const std::size_t wanted = static_cast<std::size_t>(std::max(size, 0));
  const std::size_t count = std::min(wanted, input->bytes.size() - input->position);
  if (count > 0) std::memcpy(target, input->bytes.data() + input->position, count);
  input->position += count;
  if (count < wanted) input->isCutOff = true;
  if (input->readsBlocks) input->shortenBlock(*target);
  return static_cast<int>(count);
}

/// giflib leaves out a block that is cut off; this has it read what there is. Lengths and bytes of blocks are read by
/// turns.
void GifReader::Input::shortenBlock(GifByteType& read) {
  const bool isLength = !std::exchange(isInBlock, false);
  if (!isLength || isCutOff) return;
  const std::size_t left = bytes.size() - position;
  if (read > left) {
    read = static_cast<GifByteType>(left);
    isShortened = true;
  }
  isInBlock = read > 0;
}

std::string GifReader::describeError() const {
  if (input_.isCutOff || input_.isShortened) return "it is cut off";
  const char* const text = file_ ? GifErrorString(file_->Error) : nullptr;
  return text ? text : "its code size is wrong";
}

/// giflib notes down each image that it comes across; those notes would grow with every frame that is played.
void GifReader::forgetSavedImages() {
  GifFreeSavedImages(file_.get());
  file_->SavedImages = nullptr;
  file_->ImageCount = 0;
}

bool GifReader::scan(const FrameHandler& onFrame) {
  file_.reset(DGifOpen(&input_, &GifReader::readInput, nullptr));
  if (!file_) {
    reasonOfEnd_ = input_.isCutOff ? "it is cut off" : "it has no screen";
    return false;
  }
  onFrame_ = &onFrame;
  for (;;) {
    const std::size_t offset = input_.position;
    GifRecordType record = UNDEFINED_RECORD_TYPE;
    if (DGifGetRecordType(file_.get(), &record) == GIF_ERROR || !scanRecord(record, offset)) break;
    if (record == TERMINATE_RECORD_TYPE) return true;
  }
  reasonOfEnd_ = describeError();
  return true;
}

bool GifReader::scanRecord(GifRecordType record, std::size_t offset) {
  if (record == EXTENSION_RECORD_TYPE) return scanExtension();
  if (record == IMAGE_DESC_RECORD_TYPE) return scanFrame(offset);
  return true;
}

bool GifReader::scanExtension() {
  int function = 0;
  GifByteType* block = nullptr;
  if (DGifGetExtension(file_.get(), &function, &block) == GIF_ERROR) return false;
  GraphicsControlBlock control;
  if (block && function == GRAPHICS_EXT_FUNC_CODE && DGifExtensionToGCB(block[0], block + 1, &control) == GIF_OK) {
    pendingControl_ = control;
  }
  const bool isLoop = block && function == APPLICATION_EXT_FUNC_CODE && isLoopExtension(block);
  while (block) {
    if (DGifGetExtensionNext(file_.get(), &block) == GIF_ERROR) return false;
    if (isLoop && block && block[0] >= 3 && block[1] == 1) loopCount_ = block[2] | block[3] << 8;
  }
  return true;
}

bool GifReader::scanFrame(std::size_t offset) {
  if (DGifGetImageDesc(file_.get()) == GIF_ERROR) return false;
  const GifImageDesc& image = file_->Image;
  GifFrame frame = {.offset = offset,
                    .left = image.Left,
                    .top = image.Top,
                    .width = image.Width,
                    .height = image.Height,
                    .control = pendingControl_};
  forgetSavedImages();
  pendingControl_.reset();
  int colorBits = 0;
  GifByteType* block = nullptr;
  input_.readsBlocks = true;
  input_.isInBlock = false;
  int result = DGifGetCode(file_.get(), &colorBits, &block);
  FirstCode first(colorBits);
  while (result == GIF_OK && block) {
    first.feed({block + 1, block[0]});
    result = DGifGetCodeNext(file_.get(), &block);
  }
  input_.readsBlocks = false;
  frame.hasPixels = first.isColor() || frame.pixels() == 0;
  const bool isWhole = result == GIF_OK && !input_.isShortened;
  return (isWhole || frame.hasPixels) && (*onFrame_)(frame) && isWhole;
}

bool GifReader::openFrame(const GifFrame& frame) {
  forgetSavedImages();
  input_.position = frame.offset;
  input_.isCutOff = input_.isShortened = input_.readsBlocks = input_.isInBlock = false;
  file_->Error = 0;
  GifRecordType record = UNDEFINED_RECORD_TYPE;
  return DGifGetRecordType(file_.get(), &record) == GIF_OK && DGifGetImageDesc(file_.get()) == GIF_OK;
}

std::optional<std::string> GifReader::readFrame(const GifFrame& frame, const RowHandler& onRow) {
  if (frame.pixels() == 0) return std::nullopt;
  if (!openFrame(frame)) return describeError();
  const GifPalette palette = paletteOf(file_->Image.ColorMap ? file_->Image.ColorMap : file_->SColorMap);
  std::optional<std::string> reason;
  const std::vector<int> rows = rowOrder(frame.height, file_->Image.Interlace);
  row_.resize(static_cast<std::size_t>(frame.width));
  for (std::size_t i = 0; i < rows.size(); ++i) {
    if (!readRow()) {
      reason = describeError();
      const std::size_t count = readPartOfRow(frame, i);
      if (i + count > 0) reason.reset();
      onRow(rows[i], {row_.data(), count}, palette);
      break;
    }
    if (!onRow(rows[i], row_, palette)) break;
  }
  input_.readsBlocks = false;
  forgetSavedImages();
  return reason;
}

bool GifReader::readRow() {
  input_.readsBlocks = true;
  return DGifGetLine(file_.get(), row_.data(), static_cast<int>(row_.size())) == GIF_OK;
}

/// giflib does not say how much of a row it could read: the frame is read once more, that row by single pixels.
std::size_t GifReader::readPartOfRow(const GifFrame& frame, std::size_t rowsBefore) {
  if (!openFrame(frame)) return 0;
  for (std::size_t i = 0; i < rowsBefore; ++i) {
    if (!readRow()) return 0;
  }
  input_.readsBlocks = true;
  std::size_t count = 0;
  while (count < row_.size() && DGifGetLine(file_.get(), &row_[count], 1) == GIF_OK) ++count;
  return count;
}

}  // namespace tavrel
