#include "Support/GraphTestSupport.h"

#include <algorithm>
#include <cstdlib>
#include <ostream>

namespace tavrel::test {

std::ostream& operator<<(std::ostream& stream, const Pixel& pixel) {
  return stream << '(' << pixel.r << ' ' << pixel.g << ' ' << pixel.b << ' ' << pixel.a << ')';
}

Picture::Picture(int pictureWidth, int pictureHeight, const std::function<Pixel(int x, int y)>& color)
    : width(pictureWidth), height(pictureHeight) {
  for (int y = 0; y < height; ++y) {
    for (int x = 0; x < width; ++x) pixels.push_back(color(x, y));
  }
}

Picture distinctPicture(int width, int height) {
  return {width, height, [](int x, int y) {
            return Pixel{(37 * x + 11) % 256, (53 * y + 7) % 256, (x * y) % 256, 255};
          }};
}

namespace {

void storeAsBGRA(const Picture& picture, std::uint8_t* bytes, std::size_t rowBytes) {
  for (int y = 0; y < picture.height; ++y) {
    for (int x = 0; x < picture.width; ++x) {
      const Pixel& pixel = picture.at(x, y);
      std::uint8_t* const target = bytes + static_cast<std::size_t>(y) * rowBytes + static_cast<std::size_t>(x) * 4;
      const int components[] = {pixel.b, pixel.g, pixel.r, pixel.a};
      for (int i = 0; i < 4; ++i) target[i] = static_cast<std::uint8_t>(components[i]);
    }
  }
}

}  // namespace

std::shared_ptr<Image> imageOf(const Picture& picture) {
  const auto width = static_cast<std::size_t>(picture.width);
  const auto height = static_cast<std::size_t>(picture.height);
  Data bytes(width * height * 4);
  storeAsBGRA(picture, bytes.data(), width * 4);
  return Image::create(width, height, 8, 32, width * 4,
                       kBitmapByteOrder32Little | static_cast<std::uint32_t>(AlphaInfo::first),
                       DataProvider::create(std::move(bytes)));
}

Picture pictureOf(const Image& image) {
  const bool isLittle = (image.bitmapInfo() & kBitmapByteOrderMask) == kBitmapByteOrder32Little;
  const auto bytes = image.dataProvider()->bytes();
  return {static_cast<int>(image.width()), static_cast<int>(image.height()), [&](int x, int y) {
            const std::uint8_t* const p =
                bytes.data() + static_cast<std::size_t>(y) * image.bytesPerRow() + static_cast<std::size_t>(x) * 4;
            return isLittle ? Pixel{p[2], p[1], p[0], p[3]} : Pixel{p[0], p[1], p[2], p[3]};
          }};
}

std::shared_ptr<PixelBuffer> pixelBufferOf(const Picture& picture) {
  const auto buffer = PixelBuffer::create(static_cast<std::size_t>(picture.width),
                                          static_cast<std::size_t>(picture.height), PixelFormat::bgra32)
                          .value();
  buffer->lockBaseAddress(PixelBufferLock::readWrite);
  storeAsBGRA(picture, buffer->baseAddress(), buffer->bytesPerRow());
  buffer->unlockBaseAddress(PixelBufferLock::readWrite);
  return buffer;
}

Picture process(const Picture& source, const std::shared_ptr<TavrelGPUImageOutput>& first,
                const std::shared_ptr<TavrelGPUImageOutput>& last) {
  const auto picture = std::make_shared<TavrelGPUImagePicture>(imageOf(source));
  picture->addTarget(std::dynamic_pointer_cast<TavrelGPUImageInput>(first));
  last->useNextFrameForImageCapture();
  picture->processImage();
  TavrelRunSynchronouslyOnVideoProcessingQueue([] {});  // a busy machine may take longer than an image is waited for
  const std::shared_ptr<Image> image = last->newCGImageFromCurrentlyProcessedOutput();
  picture->removeAllTargets();
  return image ? pictureOf(*image) : Picture();
}

int largestDifference(const Picture& left, const Picture& right) {
  if (left.width != right.width || left.height != right.height) return 1 << 20;
  int largest = 0;
  for (std::size_t i = 0; i < left.pixels.size(); ++i) {
    const Pixel& a = left.pixels[i];
    const Pixel& b = right.pixels[i];
    largest = std::max({largest, std::abs(a.r - b.r), std::abs(a.g - b.g), std::abs(a.b - b.b), std::abs(a.a - b.a)});
  }
  return largest;
}

std::vector<std::string> RecordingTarget::names() const {
  std::vector<std::string> names;
  for (const Event& event : events) names.push_back(event.name);
  return names;
}

int RecordingTarget::count(const std::string& name) const {
  return static_cast<int>(
      std::count_if(events.begin(), events.end(), [&](const Event& event) { return event.name == name; }));
}

}  // namespace tavrel::test
