#include "Platform/Imaging/Private/GifReader.h"

#include <algorithm>
#include <cstring>

#include "Platform/Imaging/ImageSource.h"

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

}  // namespace

int GifReader::readInput(GifFileType* file, GifByteType* target, int size) {
  auto* const input = static_cast<Input*>(file->UserData);
  const std::size_t wanted = static_cast<std::size_t>(std::max(size, 0));
  const std::size_t count = std::min(wanted, input->bytes.size() - input->position);
  if (count > 0) std::memcpy(target, input->bytes.data() + input->position, count);
  input->position += count;
  if (count < wanted) input->isCutOff = true;
  return static_cast<int>(count);
}

std::string GifReader::describeError() const {
  if (input_.isCutOff) return "it is cut off";
  const char* const text = file_ ? GifErrorString(file_->Error) : nullptr;
  return text ? text : "its code size is wrong";
}

/// giflib notes down each image that it comes across; those notes would grow with every frame that is played.
void GifReader::forgetSavedImages() {
  GifFreeSavedImages(file_.get());
  file_->SavedImages = nullptr;
  file_->ImageCount = 0;
}

bool GifReader::scan(const std::function<bool(int width, int height)>& acceptsScreen) {
  file_.reset(DGifOpen(&input_, &GifReader::readInput, nullptr));
  if (!file_) {
    reasonOfEnd_ = input_.isCutOff ? "it is cut off" : "it has no screen";
    return false;
  }
  if (!acceptsScreen(screenWidth(), screenHeight())) return false;
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
  const GifFrame frame = {.offset = offset,
                          .left = image.Left,
                          .top = image.Top,
                          .width = image.Width,
                          .height = image.Height,
                          .control = pendingControl_};
  forgetSavedImages();
  pendingControl_.reset();
  if (!isWithinLimits(frame)) return false;
  int codeSize = 0;
  GifByteType* block = nullptr;
  if (DGifGetCode(file_.get(), &codeSize, &block) == GIF_ERROR) return false;
  while (block) {
    if (DGifGetCodeNext(file_.get(), &block) == GIF_ERROR) return false;
  }
  framePixels_ += frame.pixels();
  frames_.push_back(frame);
  return true;
}

bool GifReader::isWithinLimits(const GifFrame& frame) const {
  const std::size_t screenPixels = static_cast<std::size_t>(screenWidth()) * static_cast<std::size_t>(screenHeight());
  return frame.pixels() <= ImageSource::kMostPixelsOfGif &&
         framePixels_ + frame.pixels() <= ImageSource::kMostPixelsOfGifFrames &&
         (frames_.size() + 1) * screenPixels <= ImageSource::kMostPixelsOfGifPictures;
}

std::optional<std::string> GifReader::readFrame(const GifFrame& frame, const RowHandler& onRow) {
  input_.position = frame.offset;
  input_.isCutOff = false;
  file_->Error = 0;
  GifRecordType record = UNDEFINED_RECORD_TYPE;
  const bool isReady = DGifGetRecordType(file_.get(), &record) == GIF_OK && DGifGetImageDesc(file_.get()) == GIF_OK;
  const bool isRead =
      isReady && readRows(frame, paletteOf(file_->Image.ColorMap ? file_->Image.ColorMap : file_->SColorMap), onRow);
  auto reason = isRead ? std::nullopt : std::optional(describeError());
  forgetSavedImages();
  return reason;
}

bool GifReader::readRows(const GifFrame& frame, const GifPalette& palette, const RowHandler& onRow) {
  struct Pass {
    int first, step;
  };
  static constexpr Pass kWhole[] = {{0, 1}};
  static constexpr Pass kInterlaced[] = {{0, 8}, {4, 8}, {2, 4}, {1, 2}};
  row_.resize(static_cast<std::size_t>(frame.width));
  const auto readPass = [&](const Pass& pass) {
    for (int y = pass.first; y < frame.height; y += pass.step) {
      if (DGifGetLine(file_.get(), row_.data(), frame.width) == GIF_ERROR) return false;
      onRow(y, row_.data(), palette);
    }
    return true;
  };
  if (frame.width == 0) return true;
  return file_->Image.Interlace ? std::all_of(std::begin(kInterlaced), std::end(kInterlaced), readPass)
                                : std::all_of(std::begin(kWhole), std::end(kWhole), readPass);
}

}  // namespace tavrel
