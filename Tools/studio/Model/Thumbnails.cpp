#include "Model/Thumbnails.h"

#include <algorithm>
#include <chrono>
#include <cmath>
#include <future>
#include <string>

namespace tavrel::studio {
namespace {

/// R, G, B, A with straight colours, as the window's textures are.
std::shared_ptr<Image> imageOf(std::size_t width, std::size_t height, Data pixels) {
  return Image::create(width, height, 8, 32, width * 4, bitmapInfo(kBitmapByteOrderDefault, AlphaInfo::last),
                       DataProvider::create(std::move(pixels)));
}

/// From premultiplied B, G, R, A.
void makeStraight(Data& pixels) {
  for (std::size_t i = 0; i + 3 < pixels.size(); i += 4) {
    std::swap(pixels[i], pixels[i + 2]);
    const int alpha = pixels[i + 3];
    for (std::size_t c = i; alpha > 0 && c < i + 3; ++c) {
      pixels[c] = static_cast<std::uint8_t>(std::min(255, pixels[c] * 255 / alpha));
    }
  }
}

std::shared_ptr<Image> reduced(const Image& image) {
  const auto width = static_cast<double>(image.width());
  const auto height = static_cast<double>(image.height());
  const double factor = std::min(1.0, Thumbnails::kSide / std::max({width, height, 1.0}));
  const auto columns = static_cast<std::size_t>(std::max(1.0, width * factor));
  const auto rows = static_cast<std::size_t>(std::max(1.0, height * factor));
  Data pixels(columns * rows * 4);
  const auto canvas = BitmapContext::create(pixels.data(), columns, rows, 8, columns * 4, kBitmapPremultipliedBGRA);
  if (!canvas) return nullptr;
  canvas->drawImage(image, {{0, 0}, {static_cast<double>(columns), static_cast<double>(rows)}});
  makeStraight(pixels);
  return imageOf(columns, rows, std::move(pixels));
}

/// Hues from left to right, from light at the top to dark at the bottom, with greys below.
std::shared_ptr<Image> colourChart() {
  constexpr std::size_t kWidth = 96;
  constexpr std::size_t kHeight = 54;
  constexpr std::size_t kGreys = 12;
  Data pixels(kWidth * kHeight * 4, 255);
  for (std::size_t y = 0; y < kHeight; ++y) {
    for (std::size_t x = 0; x < kWidth; ++x) {
      std::uint8_t* const pixel = &pixels[(y * kWidth + x) * 4];
      const double across = static_cast<double>(x) / (kWidth - 1);
      const double light = 1 - 0.8 * static_cast<double>(y) / (kHeight - kGreys);
      for (int c = 0; c < 3; ++c) {
        const double hue = std::clamp(std::abs(std::fmod(across * 6 + c * 2, 6) - 3) - 1, 0.0, 1.0);
        const double value = y >= kHeight - kGreys ? across : light * (0.25 + 0.75 * hue);
        pixel[c] = static_cast<std::uint8_t>(value * 255);
      }
    }
  }
  return Image::create(kWidth, kHeight, 8, 32, kWidth * 4, kBitmapOpaqueBGRX, DataProvider::create(std::move(pixels)));
}

std::shared_ptr<Image> thumbnailOfTable(const std::filesystem::path& file) {
  auto table = TavrelLookupTableFromFile(file);
  if (!table) return nullptr;
  const auto effect = std::make_shared<TavrelLUTFilterCaptureEffect>();
  effect->setImage(std::move(table->image));
  effect->setTable(std::move(table->table));
  const auto picture = std::make_shared<TavrelGPUImagePicture>(colourChart());
  TavrelCaptureEffectChain chain({effect});
  const auto last = chain.connect(picture, picture->outputImageSize());
  // Shared with a pass that takes longer than anybody waits.
  const auto result = std::make_shared<std::promise<std::shared_ptr<Image>>>();
  auto answer = result->get_future();
  picture->processImageUpToFilter(last,
                                  [result](std::shared_ptr<Image> image) { result->set_value(std::move(image)); });
  if (answer.wait_for(std::chrono::seconds(5)) != std::future_status::ready) return nullptr;
  const auto image = answer.get();
  return image ? reduced(*image) : nullptr;
}

std::shared_ptr<Image> thumbnailOf(const std::filesystem::path& file) {
  if (isTableName(file)) return thumbnailOfTable(file);
  auto bytes = readFile(file);
  if (!bytes) return nullptr;
  const auto source = createPictures(DataProvider::create(std::move(*bytes)));
  const auto image = source ? (*source)->imageAtIndex(0) : tl::unexpected(source.error());
  return image ? reduced(*normalizedImage(*image)) : nullptr;
}

bool hasExtension(const std::filesystem::path& file, std::initializer_list<const char*> extensions) {
  std::string extension = file.extension().string();
  std::ranges::transform(extension, extension.begin(), [](unsigned char c) { return std::tolower(c); });
  return std::ranges::find(extensions, extension) != extensions.end();
}

}  // namespace

std::shared_ptr<Image> Thumbnails::of(const std::filesystem::path& file) {
  const auto [place, isNew] = images_.try_emplace(file);
  if (!isNew) return place->second;
  DispatchQueue::global()->async([weak = std::weak_ptr(alive_), file] {
    DispatchQueue::main()->async([weak, file, image = thumbnailOf(file)] {
      const auto self = weak.lock();
      if (self) (*self)->images_[file] = image;
    });
  });
  return nullptr;
}

bool isPictureName(const std::filesystem::path& file) {
  return hasExtension(file, {".png", ".jpg", ".jpeg", ".gif", ".webp", ".avif", ".tif", ".tiff", ".heic", ".apng"});
}

bool isTableName(const std::filesystem::path& file) { return hasExtension(file, {".cube", ".3dl", ".csp"}); }

}  // namespace tavrel::studio
