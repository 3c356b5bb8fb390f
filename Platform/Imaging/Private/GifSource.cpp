#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <optional>
#include <utility>

#include "Platform/Imaging/Private/Decoders.h"
#include "Platform/Imaging/Private/GifReader.h"
#include "Platform/Imaging/Private/PixelConversion.h"
#include "Platform/Imaging/Private/RecycledPixels.h"

namespace tavrel {
namespace {

constexpr double kShortestDelay = 0.05;
constexpr double kDelayOfHurriedFrames = 0.1;

class GifSource : public ImageSource {
 public:
  GifSource(std::shared_ptr<DataProvider> data, std::string name)
      : data_(std::move(data)), name_(std::move(name)), reader_(data_->bytes()) {}

  Expected<void> readStructure() {
    Expected<void> size;
    const bool hasScreen = reader_.scan([&](int width, int height) {
      size = checkScreenSize(static_cast<std::size_t>(width), static_cast<std::size_t>(height));
      return size.has_value();
    });
    if (!size) return size;
    if (!hasScreen) return damagedPicture(name_, reader_.reasonOfEnd());
    if (frames().empty()) return damagedPicture(name_, "no frame is whole");
    return {};
  }

  const char* type() const override { return "image/gif"; }
  std::size_t count() const override { return frames().size(); }
  std::optional<int> loopCount() const override { return reader_.loopCount(); }

  Expected<std::shared_ptr<Image>> imageAtIndex(std::size_t index) override {
    if (index >= frames().size())
      return failure(ImagingErrorCode::noSuchPicture, fmt::format("{} has no frame {}", name_, index));
    compose(index);
    if (damage_)
      return failure(ImagingErrorCode::damagedPicture,
                     fmt::format("{} is damaged in frame {}: {}", name_, index, *damage_));
    Data pixels = recycledPixels_->take(screen_->pixels.size());
    std::memcpy(pixels.data(), screen_->pixels.data(), pixels.size());
    const auto width = static_cast<std::size_t>(screen_->width);
    return Image::create(width, static_cast<std::size_t>(screen_->height), 8, 32, width * 4, kBitmapPremultipliedBGRA,
                         recycledPixels_->lend(std::move(pixels)));
  }

  ImageProperties properties(std::size_t index) const override {
    if (index >= frames().size()) return {};
    ImageProperties properties;
    properties.width = static_cast<std::size_t>(reader_.screenWidth());
    properties.height = static_cast<std::size_t>(reader_.screenHeight());
    if (const auto& control = frames()[index].control) {
      const double delay = control->DelayTime / 100.0;
      properties.unclampedDelayTime = delay;
      properties.delayTime = delay < kShortestDelay ? kDelayOfHurriedFrames : delay;
    }
    return properties;
  }

 private:
  /// The part of a frame that lies on the screen.
  struct Area {
    int left, top, width, height;
  };

  const std::vector<GifFrame>& frames() const { return reader_.frames(); }

  Expected<void> checkScreenSize(std::size_t width, std::size_t height) const {
    if (auto checked = checkPictureSize(name_, width, height); !checked) return checked;
    if (width * height <= kMostPixelsOfGif) return {};
    return failure(
        ImagingErrorCode::pictureTooLarge,
        fmt::format("{} is too large: {}x{}, the most is {} pixels for a GIF", name_, width, height, kMostPixelsOfGif));
  }

  Area areaOf(const GifFrame& frame) const {
    const int right = std::min(frame.left + frame.width, reader_.screenWidth());
    const int bottom = std::min(frame.top + frame.height, reader_.screenHeight());
    return {frame.left, frame.top, std::max(right - frame.left, 0), std::max(bottom - frame.top, 0)};
  }

  bool coversScreen(const GifFrame& frame) const {
    const Area area = areaOf(frame);
    return area.width == reader_.screenWidth() && area.height == reader_.screenHeight();
  }

  /// True when nothing of the earlier frames can be seen in this one or in what follows it.
  bool startsAfresh(std::size_t index) const {
    if (index == 0) return true;
    const GifFrame& before = frames()[index - 1];
    if (before.disposal() == DISPOSE_BACKGROUND && coversScreen(before)) return true;
    const GifFrame& frame = frames()[index];
    return coversScreen(frame) && frame.transparentColor() == NO_TRANSPARENT_COLOR &&
           frame.disposal() != DISPOSE_PREVIOUS;
  }

  /// Brings the screen to show the frame, from the picture on it where that leads there.
  void compose(std::size_t index) {
    if (composed_ == index) return;
    std::size_t start = index;
    const auto followsScreen = [&] { return composed_ && start == *composed_ + 1; };
    while (!startsAfresh(start) && !followsScreen()) --start;
    if (!screen_) screen_.emplace(reader_.screenWidth(), reader_.screenHeight());
    if (followsScreen()) {
      dispose(frames()[*composed_]);
    } else {
      std::fill(screen_->pixels.begin(), screen_->pixels.end(), std::uint8_t{0});
    }
    draw(start);
    for (std::size_t next = start + 1; next <= index; ++next) {
      dispose(frames()[next - 1]);
      draw(next);
    }
    composed_ = index;
  }

  void draw(std::size_t index) {
    const GifFrame& frame = frames()[index];
    const Area area = areaOf(frame);
    if (frame.disposal() == DISPOSE_PREVIOUS) saveArea(area);
    const int transparent = frame.transparentColor();
    damage_ = reader_.readFrame(frame, [&](int y, const GifPixelType* row, const GifPalette& palette) {
      if (y >= area.height) return;
      std::uint8_t* target = pixelsAt(area, y);
      for (int x = 0; x < area.width; ++x, target += 4) {
        if (row[x] != transparent) std::memcpy(target, &palette[row[x]], 4);
      }
    });
  }

  /// Does what the frame wants done before the next one is drawn.
  void dispose(const GifFrame& frame) {
    const Area area = areaOf(frame);
    const std::size_t rowSize = static_cast<std::size_t>(area.width) * 4;
    if (rowSize == 0) return;
    for (int y = 0; y < area.height; ++y) {
      std::uint8_t* const row = pixelsAt(area, y);
      if (frame.disposal() == DISPOSE_BACKGROUND) std::memset(row, 0, rowSize);
      if (frame.disposal() == DISPOSE_PREVIOUS) {
        std::memcpy(row, saved_.data() + static_cast<std::size_t>(y) * rowSize, rowSize);
      }
    }
  }

  void saveArea(const Area& area) {
    saved_.clear();
    if (area.width == 0) return;
    for (int y = 0; y < area.height; ++y) {
      const std::uint8_t* const row = pixelsAt(area, y);
      saved_.insert(saved_.end(), row, row + static_cast<std::ptrdiff_t>(area.width) * 4);
    }
  }

  std::uint8_t* pixelsAt(const Area& area, int y) {
    return screen_->row(area.top + y) + static_cast<std::ptrdiff_t>(area.left) * 4;
  }

  const std::shared_ptr<DataProvider> data_;
  const std::string name_;
  GifReader reader_;
  const std::shared_ptr<RecycledPixels> recycledPixels_ = std::make_shared<RecycledPixels>();
  std::optional<Bitmap> screen_;
  /// The frame that the screen shows.
  std::optional<std::size_t> composed_;
  /// What was under the frame on the screen, where that frame wants it back.
  Data saved_;
  /// Why the frame on the screen could not be unpacked to its end.
  std::optional<std::string> damage_;
};

}  // namespace

Expected<std::shared_ptr<ImageSource>> createGifSource(std::shared_ptr<DataProvider> data, std::string name) {
  auto source = std::make_shared<GifSource>(std::move(data), std::move(name));
  if (auto structure = source->readStructure(); !structure) return tl::unexpected(structure.error());
  return source;
}

}  // namespace tavrel
