#include <algorithm>
#include <cstring>
#include <utility>

#include "Platform/Imaging/Private/AnimationSource.h"
#include "Platform/Imaging/Private/Decoders.h"
#include "Platform/Imaging/Private/GifReader.h"

namespace tavrel {
namespace {

AnimationFrame::Disposal disposalOf(const GifFrame& frame) {
  if (frame.disposal() == DISPOSE_BACKGROUND) return AnimationFrame::Disposal::clear;
  return frame.disposal() == DISPOSE_PREVIOUS ? AnimationFrame::Disposal::restore : AnimationFrame::Disposal::keep;
}

class GifSource : public AnimationSource {
 public:
  GifSource(std::shared_ptr<DataProvider> data, std::string name)
      : AnimationSource(std::move(data), std::move(name)), reader_(bytes()) {}

  Expected<void> readStructure() {
    Expected<void> size;
    const bool hasScreen = reader_.scan([&](const GifFrame& frame) {
      if (records_.empty()) size = chooseCanvasSize(frame);
      return size && add(frame);
    });
    if (!size) return size;
    if (!hasScreen) return damagedPicture(name(), reader_.reasonOfEnd());
    if (records_.empty()) return damagedPicture(name(), "it has no frame that can be read");
    setLoopCount(reader_.loopCount());
    return {};
  }

  const char* type() const override { return "image/gif"; }

 private:
  /// As browsers do: a screen that is too small for the first frame, as one of no size is, grows to show it.
  Expected<void> chooseCanvasSize(const GifFrame& first) {
    return setCanvasSize(static_cast<std::size_t>(std::max(reader_.screenWidth(), first.left + first.width)),
                         static_cast<std::size_t>(std::max(reader_.screenHeight(), first.top + first.height)));
  }

  bool add(const GifFrame& record) {
    AnimationFrame frame = {.left = record.left,
                            .top = record.top,
                            .width = record.width,
                            .height = record.height,
                            .disposal = disposalOf(record),
                            .isOpaque = record.transparentColor() == NO_TRANSPARENT_COLOR,
                            .isEmpty = !record.hasPixels};
    if (record.control) frame.delay = record.control->DelayTime / 100.0;
    if (!addFrame(frame)) return false;
    records_.push_back(record);
    return true;
  }

  std::optional<std::string> draw(std::size_t index, Bitmap& canvas) override {
    const AnimationFrame& frame = frames()[index];
    const Area area = areaOf(frame);
    const int transparent = records_[index].transparentColor();
    const auto drawRow = [&](int y, std::span<const GifPixelType> row, const GifPalette& palette) {
      if (row.size() < static_cast<std::size_t>(frame.width)) noteHoles(index);
      if (y >= area.height || area.width == 0) return !isGivenUp();
      std::uint8_t* target = canvas.row(area.top + y) + static_cast<std::ptrdiff_t>(area.left) * 4;
      for (const GifPixelType color : row.first(std::min(row.size(), static_cast<std::size_t>(area.width)))) {
        if (color != transparent) std::memcpy(target, &palette[color], 4);
        target += 4;
      }
      return !isGivenUp();
    };
    return reader_.readFrame(records_[index], drawRow);
  }

  GifReader reader_;
  std::vector<GifFrame> records_;
};

}  // namespace

Expected<std::shared_ptr<ImageSource>> createGifSource(std::shared_ptr<DataProvider> data, std::string name) {
  return createAnimation<GifSource>(std::move(data), std::move(name));
}

}  // namespace tavrel
