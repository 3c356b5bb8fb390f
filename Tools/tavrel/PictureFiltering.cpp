#include "PictureFiltering.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <cstring>

namespace tavrel::tool {
namespace {

/// What the graph holds for a pixel at most: the picture and its texture, the textures of a filter of two passes and
/// two inputs, and those that wait in the cache for the next one; for 8 bits a component.
constexpr double kBytesPerPixel = 64;
constexpr double kSmallestSide = 256;

Size sizeOf(const Image& image) { return {static_cast<double>(image.width()), static_cast<double>(image.height())}; }

std::size_t offsetOf(const Rect& part, std::size_t row, const Image& image) {
  return (static_cast<std::size_t>(part.origin.y) + row) * image.bytesPerRow() +
         static_cast<std::size_t>(part.origin.x) * image.bitsPerPixel() / 8;
}

std::shared_ptr<Image> partOf(const std::shared_ptr<Image>& image, const Rect& part) {
  if (part == Rect{{0, 0}, sizeOf(*image)}) return image;
  const auto width = static_cast<std::size_t>(part.size.width);
  const std::size_t rowBytes = width * image->bitsPerPixel() / 8;
  Data bytes(rowBytes * static_cast<std::size_t>(part.size.height));
  const std::uint8_t* const from = image->dataProvider()->bytes().data();
  for (std::size_t row = 0; row * rowBytes < bytes.size(); ++row) {
    std::memcpy(bytes.data() + row * rowBytes, from + offsetOf(part, row, *image), rowBytes);
  }
  return Image::create(width, static_cast<std::size_t>(part.size.height), image->bitsPerComponent(),
                       image->bitsPerPixel(), rowBytes, image->bitmapInfo(), DataProvider::create(std::move(bytes)));
}

/// The graph keeps colours as they came, premultiplied; an image that was read back from plain textures says otherwise.
std::shared_ptr<Image> markedPremultiplied(const std::shared_ptr<Image>& image) {
  if (!image || image->alphaInfo() != AlphaInfo::last || image->bitsPerPixel() != 32) return image;
  return Image::create(image->width(), image->height(), image->bitsPerComponent(), image->bitsPerPixel(),
                       image->bytesPerRow(), static_cast<std::uint32_t>(AlphaInfo::premultipliedLast),
                       image->dataProvider());
}

}  // namespace

bool PictureFiltering::fits(Size size) const {
  const double largest = TavrelGPUImageContext::maximumTextureSizeForThisDevice();
  return size.width <= largest && size.height <= largest && size.width * size.height * bytesPerPixel_ <= memory_;
}

std::vector<Rect> PictureFiltering::parts(Size whole) const {
  const double largest = TavrelGPUImageContext::maximumTextureSizeForThisDevice() / 2;  // the rest is for the margins
  const double side = std::clamp(std::floor(std::sqrt(memory_ / bytesPerPixel_)), kSmallestSide, largest);
  std::vector<Rect> parts;
  for (double y = 0; y < whole.height; y += side) {
    for (double x = 0; x < whole.width; x += side) {
      parts.push_back({{x, y}, {std::min(side, whole.width - x), std::min(side, whole.height - y)}});
    }
  }
  return parts;
}

FilteredPicture PictureFiltering::run(const std::shared_ptr<Image>& source, const std::optional<LargeImage>& large) {
  // The graph would draw a copy, from which the last of 16 bits may differ.
  if (effects_.effects().empty()) return {source, large};
  bytesPerPixel_ = kBytesPerPixel * static_cast<double>(source->bitsPerPixel()) / 32;
  if (fits(sizeOf(*source))) return {filtered(effects_, source), std::nullopt};
  const Size whole = effects_.sizeAfter(sizeOf(*source));
  const std::vector<Rect> parts = this->parts(whole);
  std::optional<LargeImage> result;
  for (std::size_t i = 0; i < parts.size(); ++i) {
    progress_.show(static_cast<double>(i) / static_cast<double>(parts.size()),
                   fmt::format("part {} of {}", i + 1, parts.size()));
    if (!add(parts[i], source, whole, result)) return {};
    result->rest();
    if (large) large->rest();
    // Parts at the edges are of other sizes.
    TavrelGPUImageContext::sharedFramebufferCache()->purgeAllUnassignedFramebuffers();
  }
  return {result->image(), result};
}

bool PictureFiltering::add(const Rect& output, const std::shared_ptr<Image>& source, Size whole,
                           std::optional<LargeImage>& result) {
  auto part = effects_.part(output, sizeOf(*source));
  if (!part) {
    say("an effect works on whole pictures only, and this one is too large for that");
    return false;
  }
  const auto image = filtered(part->chain, partOf(source, part->input));
  if (!image) return false;
  if (!result) {
    auto room = LargeImage::create(static_cast<std::size_t>(whole.width), static_cast<std::size_t>(whole.height),
                                   image->bitmapInfo());
    if (!room) {
      say("{}", room.error().description);
      return false;
    }
    result = std::move(*room);
  }
  const Rect inside = {{output.origin.x - part->output.origin.x, output.origin.y - part->output.origin.y}, output.size};
  const std::uint8_t* const from = image->dataProvider()->bytes().data();
  for (std::size_t row = 0; row < static_cast<std::size_t>(output.size.height); ++row) {
    std::memcpy(result->row(0) + offsetOf(output, row, *result->image()), from + offsetOf(inside, row, *image),
                static_cast<std::size_t>(output.size.width) * image->bitsPerPixel() / 8);
  }
  return true;
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
  return markedPremultiplied(answer->image);
}

}  // namespace tavrel::tool
