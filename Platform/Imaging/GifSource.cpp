#include <fmt/format.h>
#include <gif_lib.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <utility>
#include <vector>

#include "Platform/Imaging/Private/Decoders.h"
#include "Platform/Imaging/Private/PixelConversion.h"

namespace tavrel {
namespace {

/// Reads for giflib from memory.
struct MemoryReader {
  const Data& data;
  std::size_t position = 0;

  static int read(GifFileType* file, GifByteType* target, int length) {
    auto* const reader = static_cast<MemoryReader*>(file->UserData);
    const std::size_t count =
        std::min(static_cast<std::size_t>(std::max(length, 0)), reader->data.size() - reader->position);
    std::memcpy(target, reader->data.data() + reader->position, count);
    reader->position += count;
    return static_cast<int>(count);
  }
};

struct GifCloser {
  void operator()(GifFileType* file) const { DGifCloseFile(file, nullptr); }
};

/// One frame as stored: a part of the screen in colours of its own.
struct GifFrame {
  int left = 0;
  int top = 0;
  int width = 0;
  int height = 0;
  std::vector<std::uint8_t> colorIndices;
  std::vector<GifColorType> colors;
  std::optional<GraphicsControlBlock> control;

  int disposal() const { return control ? control->DisposalMode : DISPOSAL_UNSPECIFIED; }
  int transparentColor() const { return control ? control->TransparentColor : NO_TRANSPARENT_COLOR; }
};

constexpr double kShortestDelay = 0.05;
constexpr double kDelayOfHurriedFrames = 0.1;

/// Frame memory that one file may take altogether.
constexpr std::size_t kMostFrameBytes = std::size_t{1} << 29;

std::optional<int> loopCountIn(const ExtensionBlock* blocks, int count) {
  for (int i = 0; i + 1 < count; ++i) {
    const bool isLoopBlock =
        blocks[i].Function == APPLICATION_EXT_FUNC_CODE && blocks[i].ByteCount >= 11 &&
        (std::memcmp(blocks[i].Bytes, "NETSCAPE2.0", 11) == 0 || std::memcmp(blocks[i].Bytes, "ANIMEXTS1.0", 11) == 0);
    const ExtensionBlock& value = blocks[i + 1];
    if (isLoopBlock && value.ByteCount >= 3 && value.Bytes[0] == 1) return value.Bytes[1] | value.Bytes[2] << 8;
  }
  return std::nullopt;
}

class GifSource : public ImageSource {
 public:
  GifSource(std::string name, int width, int height) : name_(std::move(name)), screen_(width, height) {}

  /// Reads every frame that is whole; false when there is none.
  bool read(GifFileType* file) {
    std::size_t bytes = 0;
    GifRecordType record = UNDEFINED_RECORD_TYPE;
    while (DGifGetRecordType(file, &record) == GIF_OK && record != TERMINATE_RECORD_TYPE) {
      if (record == EXTENSION_RECORD_TYPE) {
        if (!readExtension(file)) break;
      } else if (record == IMAGE_DESC_RECORD_TYPE) {
        if (!readFrame(file, bytes)) break;
      }
    }
    GifFreeExtensions(&pendingCount_, &pending_);
    return !frames_.empty();
  }

  const char* type() const override { return "image/gif"; }
  std::size_t count() const override { return frames_.size(); }
  std::optional<int> loopCount() const override { return loopCount_; }

  Expected<std::shared_ptr<Image>> imageAtIndex(std::size_t index) override {
    if (index >= frames_.size()) return imagingFailure(fmt::format("{} has no frame {}", name_, index));
    if (index < nextFrame_) restart();
    while (nextFrame_ <= index) composeNextFrame();
    return imageOf(screen_, false);
  }

  ImageProperties properties(std::size_t index) const override {
    if (index >= frames_.size()) return {};
    ImageProperties properties;
    properties.width = static_cast<std::size_t>(screen_.width);
    properties.height = static_cast<std::size_t>(screen_.height);
    if (const auto& control = frames_[index].control) {
      const double delay = control->DelayTime / 100.0;
      properties.unclampedDelayTime = delay;
      properties.delayTime = delay < kShortestDelay ? kDelayOfHurriedFrames : delay;
    }
    return properties;
  }

 private:
  bool readExtension(GifFileType* file) {
    int function = 0;
    GifByteType* block = nullptr;
    if (DGifGetExtension(file, &function, &block) == GIF_ERROR) return false;
    for (; block; function = CONTINUE_EXT_FUNC_CODE) {
      // Comments may go on for ever; only what is understood is kept.
      const bool isUnderstood = function == GRAPHICS_EXT_FUNC_CODE || function == APPLICATION_EXT_FUNC_CODE ||
                                (pendingCount_ > 0 && pendingCount_ < 16 && function == CONTINUE_EXT_FUNC_CODE);
      if (isUnderstood && GifAddExtensionBlock(&pendingCount_, &pending_, function, block[0], block + 1) == GIF_ERROR) {
        return false;
      }
      if (DGifGetExtensionNext(file, &block) == GIF_ERROR) return false;
    }
    if (!loopCount_) loopCount_ = loopCountIn(pending_, pendingCount_);
    return true;
  }

  bool readFrame(GifFileType* file, std::size_t& bytes) {
    if (DGifGetImageDesc(file) == GIF_ERROR) return false;
    const GifImageDesc& description = file->Image;
    GifFrame frame = {.left = description.Left,
                      .top = description.Top,
                      .width = description.Width,
                      .height = description.Height,
                      .colorIndices = {},
                      .colors = {},
                      .control = pendingControl()};
    GifFreeExtensions(&pendingCount_, &pending_);
    const auto pixels = static_cast<std::size_t>(frame.width) * static_cast<std::size_t>(frame.height);
    bytes += pixels;
    if (bytes > kMostFrameBytes) return false;
    frame.colorIndices.resize(pixels);
    if (!readRows(file, frame, description.Interlace)) return false;
    const ColorMapObject* const map = description.ColorMap ? description.ColorMap : file->SColorMap;
    if (map) frame.colors.assign(map->Colors, map->Colors + map->ColorCount);
    frames_.push_back(std::move(frame));
    return true;
  }

  static bool readRows(GifFileType* file, GifFrame& frame, bool isInterlaced) {
    // Interlaced rows come in four passes.
    static constexpr int kFirst[] = {0, 4, 2, 1};
    static constexpr int kStep[] = {8, 8, 4, 2};
    for (int pass = 0; pass < (isInterlaced ? 4 : 1); ++pass) {
      for (int y = isInterlaced ? kFirst[pass] : 0; y < frame.height; y += isInterlaced ? kStep[pass] : 1) {
        std::uint8_t* const row = frame.colorIndices.data() + static_cast<std::ptrdiff_t>(y) * frame.width;
        if (DGifGetLine(file, row, frame.width) == GIF_ERROR) return false;
      }
    }
    return true;
  }

  std::optional<GraphicsControlBlock> pendingControl() const {
    for (int i = pendingCount_ - 1; i >= 0; --i) {
      GraphicsControlBlock control;
      if (pending_[i].Function == GRAPHICS_EXT_FUNC_CODE && pending_[i].ByteCount == 4 &&
          DGifExtensionToGCB(4, pending_[i].Bytes, &control) == GIF_OK) {
        return control;
      }
    }
    return std::nullopt;
  }

  void restart() {
    nextFrame_ = 0;
    std::fill(screen_.pixels.begin(), screen_.pixels.end(), std::uint8_t{0});
  }

  void composeNextFrame() {
    if (nextFrame_ > 0) disposeOf(frames_[nextFrame_ - 1]);
    const GifFrame& frame = frames_[nextFrame_];
    if (frame.disposal() == DISPOSE_PREVIOUS) beforeFrame_ = screen_.pixels;
    forEachVisibleRow(frame, [&](std::uint8_t* target, const std::uint8_t* indices, int count) {
      for (int x = 0; x < count; ++x, target += 4) {
        const int index = indices[x];
        if (index == frame.transparentColor() || index >= static_cast<int>(frame.colors.size())) continue;
        const GifColorType& color = frame.colors[static_cast<std::size_t>(index)];
        const std::uint8_t pixel[] = {color.Blue, color.Green, color.Red, 255};
        std::memcpy(target, pixel, sizeof pixel);
      }
    });
    ++nextFrame_;
  }

  void disposeOf(const GifFrame& frame) {
    if (frame.disposal() == DISPOSE_PREVIOUS) {
      screen_.pixels = beforeFrame_;
    } else if (frame.disposal() == DISPOSE_BACKGROUND) {
      forEachVisibleRow(frame, [](std::uint8_t* target, const std::uint8_t*, int count) {
        std::memset(target, 0, static_cast<std::size_t>(count) * 4);
      });
    }
  }

  /// Calls `action` with the screen's and the frame's pixels of each row; what lies beyond the screen is cut off.
  template <typename Action>
  void forEachVisibleRow(const GifFrame& frame, Action action) {
    const int count = std::min(frame.width, screen_.width - frame.left);
    if (count <= 0) return;
    for (int y = 0; y < std::min(frame.height, screen_.height - frame.top); ++y) {
      action(screen_.row(frame.top + y) + static_cast<std::ptrdiff_t>(frame.left) * 4,
             frame.colorIndices.data() + static_cast<std::ptrdiff_t>(y) * frame.width, count);
    }
  }

  const std::string name_;
  std::vector<GifFrame> frames_;
  std::optional<int> loopCount_;
  ExtensionBlock* pending_ = nullptr;
  int pendingCount_ = 0;
  Bitmap screen_;  // as seen with the frame before `nextFrame_`
  Data beforeFrame_;
  std::size_t nextFrame_ = 0;
};

}  // namespace

Expected<std::shared_ptr<ImageSource>> createGifSource(Data data, std::string name) {
  MemoryReader reader{data};
  int error = 0;
  const std::unique_ptr<GifFileType, GifCloser> file(DGifOpen(&reader, &MemoryReader::read, &error));
  if (!file) {
    const char* const reason = GifErrorString(error);
    return imagingFailure(fmt::format("{} is damaged: {}", name, reason ? reason : "it is cut off"));
  }
  const auto width = static_cast<std::size_t>(file->SWidth);
  const auto height = static_cast<std::size_t>(file->SHeight);
  if (const auto checked = checkPictureSize(name, width, height); !checked) return tl::unexpected(checked.error());
  auto source = std::make_shared<GifSource>(name, file->SWidth, file->SHeight);
  if (!source->read(file.get())) return imagingFailure(fmt::format("{} is damaged: no frame is whole", name));
  return source;
}

}  // namespace tavrel
