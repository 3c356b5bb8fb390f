#include "HintLine.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "Platform/Imaging/PixelFont.h"

namespace tavrel::tool {
namespace {

using namespace pixel_font;

constexpr int kZoom = 2;    // pixels of the strip for one of a letter
constexpr int kMargin = 4;  // of the strip
constexpr int kStep = (kGlyphWidth + 1) * kZoom;
constexpr int kMarkCharacters = 2;  // the red mark takes as much room
constexpr int kWidth = (HintLine::kMostCharacters + kMarkCharacters) * kStep + 2 * kMargin;
constexpr int kHeight = kGlyphHeight * kZoom + 2 * kMargin;

/// B, G, R and an unused byte.
class Strip {
 public:
  void fill(int left, int top, int width, int height, std::uint32_t colour) {
    for (int y = top; y < top + height; ++y) {
      for (int x = left; x < left + width; ++x) {
        std::uint8_t* const pixel = &bytes_[static_cast<std::size_t>(y * kWidth + x) * 4];
        for (int i = 0; i < 3; ++i) pixel[i] = static_cast<std::uint8_t>(colour >> (8 * i));
      }
    }
  }
  void draw(char character, int left) {
    drawGlyph(character,
              [&](int column, int row) { fill(left + column * kZoom, kMargin + row * kZoom, kZoom, kZoom, 0xFFFFFF); });
  }
  std::shared_ptr<Image> image() {
    return Image::create(kWidth, kHeight, 8, 32, std::size_t{kWidth} * 4, kBitmapOpaqueBGRX,
                         DataProvider::create(std::move(bytes_)));
  }

 private:
  Data bytes_ = Data(std::size_t{kWidth} * kHeight * 4);
};

std::shared_ptr<Image> imageOf(const std::string& text, bool isRecording) {
  Strip strip;
  const int count = std::min(static_cast<int>(text.size()), HintLine::kMostCharacters);
  const int taken = (count + (isRecording ? kMarkCharacters : 0)) * kStep;
  int left = (kWidth - taken) / 2;
  if (isRecording) {
    constexpr int kSide = kGlyphHeight * kZoom;
    strip.fill(left, kMargin, kSide, kSide, 0xE02A20);
    left += kMarkCharacters * kStep;
  }
  for (int i = 0; i < count; ++i) strip.draw(text[static_cast<std::size_t>(i)], left + i * kStep);
  return strip.image();
}

}  // namespace

HintLine::HintLine() : strip_(std::make_shared<TavrelGPUImageView>()) {
  setFillsSuperview(true);
  setUserInteractionEnabled(false);
  strip_->setUserInteractionEnabled(false);
  strip_->setAlpha(0.75);
  addSubview(strip_);
}

void HintLine::setText(const std::string& text, bool isRecording) {
  const std::string shown = (isRecording ? "*" : " ") + text;
  if (shown == shown_) return;
  shown_ = shown;
  if (picture_) picture_->removeAllTargets();
  picture_ = std::make_shared<TavrelGPUImagePicture>(imageOf(text, isRecording));
  picture_->addTarget(strip_);
  picture_->processImage();
}

void HintLine::layoutSubviews() {
  const Size room = bounds().size;
  const double width = std::min<double>(kWidth, room.width);
  const double height = width * kHeight / kWidth;
  strip_->setFrame({{std::floor((room.width - width) / 2), std::floor(room.height - height - 6)}, {width, height}});
  // Its pictures have to be drawn anew for another size.
  if (picture_) picture_->processImage();
}

}  // namespace tavrel::tool
