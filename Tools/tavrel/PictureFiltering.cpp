#include "PictureFiltering.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>

namespace tavrel::tool {
namespace {

/// What the graph holds for a pixel at most: the picture and its texture, the textures of a filter of two passes and
/// two inputs, and those that wait in the cache for the next one.
constexpr double kBytesPerPixel = 64;
constexpr double kSmallestSide = 256;

Size sizeOf(const Image& image) { return {static_cast<double>(image.width()), static_cast<double>(image.height())}; }

std::size_t offsetOf(const Rect& part, std::size_t row, std::size_t bytesPerRow) {
  return (static_cast<std::size_t>(part.origin.y) + row) * bytesPerRow + static_cast<std::size_t>(part.origin.x) * 4;
}

/// An image of `size` with the rows that start at `bytes`; all come from the graph or its sources, with 4 bytes a
/// pixel.
std::shared_ptr<Image> imageLike(const Image& other, Size size, Data bytes) {
  const auto width = static_cast<std::size_t>(size.width);
  return Image::create(width, static_cast<std::size_t>(size.height), 8, 32, width * 4, other.bitmapInfo(),
                       DataProvider::create(std::move(bytes)));
}

std::shared_ptr<Image> partOf(const std::shared_ptr<Image>& image, const Rect& part) {
  if (part == Rect{{0, 0}, sizeOf(*image)}) return image;
  const auto rowBytes = static_cast<std::size_t>(part.size.width) * 4;
  Data bytes(rowBytes * static_cast<std::size_t>(part.size.height));
  const std::uint8_t* const from = image->dataProvider()->bytes().data();
  for (std::size_t row = 0; row * rowBytes < bytes.size(); ++row) {
    std::memcpy(bytes.data() + row * rowBytes, from + offsetOf(part, row, image->bytesPerRow()), rowBytes);
  }
  return imageLike(*image, part.size, std::move(bytes));
}

}  // namespace

/// The picture that the parts make up.
struct PictureFiltering::Result {
  explicit Result(Size whole) : size(whole), bytes(static_cast<std::size_t>(whole.width * whole.height) * 4) {}

  /// Takes over `part` of what `image` shows, which begins at `origin` of the whole.
  void add(const std::shared_ptr<Image>& image, Point origin, const Rect& part) {
    const Rect inside = {{part.origin.x - origin.x, part.origin.y - origin.y}, part.size};
    const auto wholeRow = static_cast<std::size_t>(size.width) * 4;
    const std::uint8_t* const from = image->dataProvider()->bytes().data();
    for (std::size_t row = 0; row < static_cast<std::size_t>(part.size.height); ++row) {
      std::memcpy(bytes.data() + offsetOf(part, row, wholeRow), from + offsetOf(inside, row, image->bytesPerRow()),
                  static_cast<std::size_t>(part.size.width) * 4);
    }
    layout = image;
  }

  Size size;
  Data bytes;
  std::shared_ptr<Image> layout;
};

bool PictureFiltering::fits(Size size) const {
  const double largest = TavrelGPUImageContext::maximumTextureSizeForThisDevice();
  return size.width <= largest && size.height <= largest && size.width * size.height * kBytesPerPixel <= memory_;
}

std::vector<Rect> PictureFiltering::parts(Size whole) const {
  const double largest = TavrelGPUImageContext::maximumTextureSizeForThisDevice() / 2;  // the rest is for the margins
  const double side = std::clamp(std::floor(std::sqrt(memory_ / kBytesPerPixel)), kSmallestSide, largest);
  std::vector<Rect> parts;
  for (double y = 0; y < whole.height; y += side) {
    for (double x = 0; x < whole.width; x += side) {
      parts.push_back({{x, y}, {std::min(side, whole.width - x), std::min(side, whole.height - y)}});
    }
  }
  return parts;
}

std::shared_ptr<Image> PictureFiltering::run(const std::shared_ptr<Image>& source) {
  const Size size = sizeOf(*source);
  const Size whole = effects_.sizeAfter(size);
  if (fits(size)) return filtered(effects_, source);

  Result result(whole);
  const std::vector<Rect> parts = this->parts(whole);
  for (std::size_t i = 0; i < parts.size(); ++i) {
    progress_.show(static_cast<double>(i) / static_cast<double>(parts.size()),
                   fmt::format("part {} of {}", i + 1, parts.size()));
    auto part = effects_.part(parts[i], size);
    if (!part) {
      say("an effect works on whole pictures only, and this one is too large for that");
      return nullptr;
    }
    const auto image = filtered(part->chain, partOf(source, part->input));
    if (!image) return nullptr;
    result.add(image, part->output.origin, parts[i]);
    // Parts at the edges are of other sizes.
    TavrelGPUImageContext::sharedFramebufferCache()->purgeAllUnassignedFramebuffers();
  }
  return imageLike(*result.layout, whole, std::move(result.bytes));
}

std::shared_ptr<Image> PictureFiltering::filtered(TavrelCaptureEffectChain& effects,
                                                  const std::shared_ptr<Image>& source) {
  struct Answer {
    DispatchSemaphore given{0};
    std::shared_ptr<Image> image;
  };
  const auto answer = std::make_shared<Answer>();  // the graph may still have it after an interruption
  const auto picture = std::make_shared<TavrelGPUImagePicture>(source);
  // A filter at the end keeps the picture, also without effects.
  const auto last = std::make_shared<TavrelGPUImageFilter>();
  effects.connect(picture, picture->outputImageSize())->addTarget(last);
  picture->processImageUpToFilter(last, [answer](std::shared_ptr<Image> image) {
    answer->image = std::move(image);
    answer->given.signal();
  });
  while (!answer->given.wait(std::chrono::milliseconds(50))) {
    if (!interruption_.isAskedFor()) continue;
    progress_.clear();
    say("interrupted; nothing was written");
    return nullptr;
  }
  if (!answer->image) say("the graph gave no picture");
  return std::move(answer->image);
}

}  // namespace tavrel::tool
