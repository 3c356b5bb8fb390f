#include <fmt/format.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <utility>
#include <vector>

#include "Platform/Imaging/Private/Decoders.h"
#include "Platform/Imaging/Private/Exif.h"
#include "Platform/Imaging/Private/StoredPixels.h"
#include "Platform/Imaging/Private/TiffFile.h"

namespace tavrel {
namespace {

/// Rows of samples as stored, of one plane or of all samples together, in order.
class TiffRows {
 public:
  TiffRows(const TiffFile& file, const TiffForm& form, std::uint16_t plane)
      : tiff_(file.get()), form_(form), plane_(plane), isTiled_(TIFFIsTiled(tiff_) != 0) {
    rowsAtOnce_ = file.field<std::uint32_t>(isTiled_ ? TIFFTAG_TILELENGTH : TIFFTAG_ROWSPERSTRIP);
    rowsAtOnce_ = std::clamp<std::uint32_t>(rowsAtOnce_, 1, isTiled_ ? rowsAtOnce_ : form.height);
    tileWidth_ = isTiled_ ? file.field<std::uint32_t>(TIFFTAG_TILEWIDTH) : form.width;
    tileRow_ = (tileWidth_ * (form.isPlanar ? 1 : form.samples) * form.bits + 7) / 8;
  }

  /// False when the file lacks them, or they would be more than such a picture needs.
  bool begin() {
    const tmsize_t size = isTiled_ ? TIFFTileSize(tiff_) : TIFFStripSize(tiff_);
    if (size <= 0 || size > kMostBytesOfTiff || tileWidth_ == 0 ||
        tileRow_ * rowsAtOnce_ > static_cast<std::size_t>(size))
      return false;
    block_.resize(static_cast<std::size_t>(size));
    rows_.resize(isTiled_ ? rowBytes() * std::min<std::size_t>(rowsAtOnce_, form_.height) : 0);
    return rows_.size() <= static_cast<std::size_t>(kMostBytesOfTiff);
  }

  /// nullptr when it cannot be decoded.
  const std::uint8_t* row(std::uint32_t y) {
    if (y % rowsAtOnce_ == 0 && !(isTiled_ ? readTiles(y) : readStrip(y))) return nullptr;
    return isTiled_ ? rows_.data() + y % rowsAtOnce_ * rowBytes() : block_.data() + y % rowsAtOnce_ * rowBytes();
  }

 private:
  std::size_t rowBytes() const { return (form_.width + tileWidth_ - 1) / tileWidth_ * tileRow_; }

  bool readStrip(std::uint32_t y) {
    const std::uint32_t rows = std::min(rowsAtOnce_, form_.height - y);
    const auto size = static_cast<tmsize_t>(rows * rowBytes());
    return TIFFReadEncodedStrip(tiff_, TIFFComputeStrip(tiff_, y, plane_), block_.data(), size) == size;
  }

  bool readTiles(std::uint32_t y) {
    const std::uint32_t rows = std::min(rowsAtOnce_, form_.height - y);
    for (std::uint32_t x = 0; x < form_.width; x += static_cast<std::uint32_t>(tileWidth_)) {
      const auto size = static_cast<tmsize_t>(block_.size());
      if (TIFFReadEncodedTile(tiff_, TIFFComputeTile(tiff_, x, y, 0, plane_), block_.data(), size) != size)
        return false;
      for (std::uint32_t i = 0; i < rows; ++i)
        std::memcpy(rows_.data() + i * rowBytes() + x / tileWidth_ * tileRow_, block_.data() + i * tileRow_, tileRow_);
    }
    return true;
  }

  TIFF* const tiff_;
  const TiffForm& form_;
  const std::uint16_t plane_;
  const bool isTiled_;
  std::uint32_t rowsAtOnce_ = 0;
  std::size_t tileWidth_ = 0;
  std::size_t tileRow_ = 0;  // in bytes; tiles are as wide as a multiple of 16 pixels
  std::vector<std::uint8_t> block_;
  std::vector<std::uint8_t> rows_;
};

std::uint16_t wordOf(double fraction) {
  return fraction > 0 ? static_cast<std::uint16_t>(std::lround(std::min(fraction, 1.0) * 65535)) : std::uint16_t{0};
}

double halfFloat(std::uint16_t bits) {
  const int exponent = bits >> 10 & 31, fraction = bits & 1023;
  const double size = exponent == 0 ? std::ldexp(fraction, -24) : std::ldexp(fraction + 1024, exponent - 25);
  return (bits & 0x8000) != 0 ? -size : size;
}

template <typename Number>
Number numberAt(const std::uint8_t* bytes, std::size_t index) {
  Number number{};
  std::memcpy(&number, bytes + index * sizeof number, sizeof number);
  return number;
}

/// Samples of 9 to 64 bits as words: fractions of 0…1 are cut off there, numbers of odd sizes follow each other without
/// a gap, their highest bits first.
void makeWords(const std::uint8_t* row, const TiffForm& form, std::vector<std::uint16_t>& words) {
  const int largest = (1 << std::min<int>(form.bits, 16)) - 1;
  std::uint64_t queue = 0;
  int queued = 0;
  for (std::size_t i = 0; i < words.size(); ++i) {
    if (form.isFloating()) {
      words[i] = wordOf(form.bits == 16   ? halfFloat(numberAt<std::uint16_t>(row, i))
                        : form.bits == 32 ? static_cast<double>(numberAt<float>(row, i))
                                          : numberAt<double>(row, i));
    } else if (form.bits == 32) {
      words[i] = wordOf(numberAt<std::uint32_t>(row, i) / 4294967295.0);
    } else {
      for (; queued < form.bits; queued += 8) queue = queue << 8 | *row++;
      queued -= form.bits;
      words[i] = static_cast<std::uint16_t>(
          ((queue >> queued & static_cast<unsigned>(largest)) * 65535 + static_cast<unsigned>(largest) / 2) /
          static_cast<unsigned>(largest));
    }
  }
}

/// TIFF pictures through libtiff: the first of a file.
class TiffSource : public ImageSource {
 public:
  TiffSource(std::shared_ptr<DataProvider> data, std::string name, const TiffFile& file, const TiffForm& form)
      : data_(std::move(data)), name_(std::move(name)) {
    properties_.width = form.width;
    properties_.height = form.height;
    if (form.isDeep()) properties_.bitsPerComponent = 16;
    properties_.orientation = orientationOfNumber(file.field<std::uint16_t>(TIFFTAG_ORIENTATION));
    metadata_ = {.exif = exifBlockOfTiff(data_->bytes()),
                 .xmp = file.bytesOf(TIFFTAG_XMLPACKET),
                 .colorProfile = file.bytesOf(TIFFTAG_ICCPROFILE)};
  }

  const char* type() const override { return "image/tiff"; }

  Expected<std::shared_ptr<Image>> imageAtIndex(std::size_t index) override { return decodedImage(index, {}); }
  Expected<std::shared_ptr<Image>> decodedImage(std::size_t index, const ImageDecoding& decoding) override {
    if (index != 0) return failure(ImagingErrorCode::noSuchPicture, fmt::format("{} has no picture {}", name_, index));
    const TiffFile file(data_->bytes());
    if (!file.isOpen()) return damagedPicture(name_, file.message());
    const TiffForm form(file);
    StoredPixels pixels{.width = form.width,
                        .isDeep = form.isDeep(),
                        .isOpaque = !form.alpha,
                        .isPremultiplied = form.isPremultiplied || !form.isPlain()};
    pixels.bytes.resize(properties_.width * properties_.height * (pixels.isDeep ? 8 : 4));
    const auto read = form.isPlain() ? &readSamples : &readAnyKind;
    if (!read(file, form, pixels)) return damagedPicture(name_, file.message());
    const bool hasInks = form.isPlain() && form.isPrinted();
    const auto image = hasInks ? imageOfInks(lightOfInks(std::move(pixels)), properties_.width, metadata_.colorProfile)
                               : imageOfStoredPixels(std::move(pixels), metadata_.colorProfile, decoding);
    return image->withScaleAndOrientation(1, properties_.orientation);
  }

  ImageProperties properties(std::size_t index) const override { return index == 0 ? properties_ : ImageProperties{}; }
  ImageMetadata metadata() const override { return metadata_; }

 private:
  /// Samples to R, G, B, A, or B, G, R, A of 8 bits; inks to C, M, Y, K.
  template <typename Sample>
  static void spread(const std::uint8_t* row, std::uint16_t stride, const TiffForm& form, std::uint16_t plane,
                     std::uint8_t* target) {
    const auto colors = static_cast<std::uint16_t>(form.colors());
    const bool isDark = form.photometric == PHOTOMETRIC_MINISWHITE;
    const auto placeOf = [&](std::uint16_t color) -> std::size_t {
      return sizeof(Sample) == 1 && color < 3 && !form.isPrinted() ? 2U - color : color;
    };
    for (std::uint32_t x = 0; x < form.width; ++x) {
      const auto put = [&](std::size_t place, std::uint32_t value) {
        const auto sample = static_cast<Sample>(value);
        std::memcpy(target + (x * std::size_t{4} + place) * sizeof sample, &sample, sizeof sample);
      };
      for (std::uint16_t i = 0; i < stride; ++i) {
        const auto number = static_cast<std::uint16_t>(plane + i);
        Sample value = 0;
        std::memcpy(&value, row + (x * std::size_t{stride} + i) * sizeof value, sizeof value);
        if (form.alpha == number) {
          put(3, value);
        } else if (form.isGray() && number == 0) {
          for (std::size_t c = 0; c < 3; ++c) put(c, isDark ? static_cast<Sample>(~value) : value);
        } else if (number < colors) {
          put(placeOf(number), value);
        }
      }
    }
  }

  static bool readSamples(const TiffFile& file, const TiffForm& form, StoredPixels& pixels) {
    if (!form.alpha) std::fill(pixels.bytes.begin(), pixels.bytes.end(), 255);
    const std::uint16_t planes = form.isPlanar ? form.samples : 1;
    for (std::uint16_t plane = 0; plane < planes; ++plane) {
      const std::uint16_t stride = form.isPlanar ? 1 : form.samples;
      if (plane >= form.colors() && form.alpha != plane) continue;
      TiffRows rows(file, form, plane);
      if (!rows.begin()) return false;
      const bool isDirect = form.bits == 8 || (form.bits == 16 && !form.isFloating());
      std::vector<std::uint16_t> words(isDirect ? 0 : pixels.width * stride);
      for (std::uint32_t y = 0; y < form.height; ++y) {
        const std::uint8_t* row = rows.row(y);
        if (row == nullptr) return false;
        if (!isDirect) {
          makeWords(row, form, words);
          row = static_cast<const std::uint8_t*>(static_cast<const void*>(words.data()));
        }
        std::uint8_t* const target = pixels.bytes.data() + y * pixels.width * (pixels.isDeep ? 8 : 4);
        pixels.isDeep ? spread<std::uint16_t>(row, stride, form, plane, target)
                      : spread<std::uint8_t>(row, stride, form, plane, target);
      }
    }
    return true;
  }

  /// Palettes, single bits, YCbCr, Lab and the like, as premultiplied pixels of 8 bits.
  static bool readAnyKind(const TiffFile& file, const TiffForm& form, StoredPixels& pixels) {
    TIFFRGBAImage image;
    char reason[1024] = "";
    if (TIFFRGBAImageBegin(&image, file.get(), 1, reason) == 0) return false;
    image.req_orientation = image.orientation;  // turned later, as others are
    std::vector<std::uint32_t> words(pixels.width * form.height);
    const bool isRead = TIFFRGBAImageGet(&image, words.data(), form.width, form.height) != 0;
    pixels.isOpaque = image.alpha == 0;
    TIFFRGBAImageEnd(&image);
    for (std::size_t i = 0; i < words.size(); ++i) {
      const std::uint32_t word = words[i];
      const std::uint8_t pixel[] = {
          static_cast<std::uint8_t>(TIFFGetB(word)), static_cast<std::uint8_t>(TIFFGetG(word)),
          static_cast<std::uint8_t>(TIFFGetR(word)), static_cast<std::uint8_t>(TIFFGetA(word))};
      std::memcpy(pixels.bytes.data() + i * 4, pixel, 4);
    }
    return isRead;
  }

  /// What is not inked, of 8 bits.
  static Data lightOfInks(StoredPixels inks) {
    if (inks.isDeep) {
      for (std::size_t i = 0; i * 2 < inks.bytes.size(); ++i) {
        std::uint16_t word = 0;
        std::memcpy(&word, inks.bytes.data() + i * 2, sizeof word);
        inks.bytes[i] = static_cast<std::uint8_t>((word + 128U) / 257U);
      }
      inks.bytes.resize(inks.bytes.size() / 2);
    }
    for (std::uint8_t& byte : inks.bytes) byte = static_cast<std::uint8_t>(255 - byte);
    return std::move(inks.bytes);
  }

  const std::shared_ptr<DataProvider> data_;
  const std::string name_;
  ImageMetadata metadata_;
  ImageProperties properties_;
};

}  // namespace

Expected<std::shared_ptr<ImageSource>> createTiffSource(std::shared_ptr<DataProvider> data, std::string name) {
  const TiffFile file(data->bytes());
  if (!file.isOpen()) return damagedPicture(name, file.message());
  const TiffForm form(file);
  if (const auto checked = checkPictureSize(name, form.width, form.height); !checked)
    return tl::unexpected(checked.error());
  char reason[1024] = "its colours are measured ones";
  const auto isReadable = [&] {
    TIFFRGBAImage image;
    if (TIFFRGBAImageBegin(&image, file.get(), 1, reason) == 0) return false;
    TIFFRGBAImageEnd(&image);
    return true;
  };
  if (form.isMeasured() || (!form.isPlain() && !isReadable())) {
    return failure(ImagingErrorCode::unknownFormat,
                   fmt::format("{} is a TIFF of {} samples of {} bits, of a kind that is not read: {}", name,
                               form.samples, form.bits, reason));
  }
  return std::make_shared<TiffSource>(std::move(data), std::move(name), file, form);
}

}  // namespace tavrel
