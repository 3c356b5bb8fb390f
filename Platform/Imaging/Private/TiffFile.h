#pragma once

#include <tiffio.h>

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>

#include "Platform/Foundation/Data.h"
#include "Platform/Imaging/ImageSource.h"

namespace tavrel {

/// What a tile, a strip or a directory may take: as much as the pixels of the largest picture.
inline constexpr tmsize_t kMostBytesOfTiff = static_cast<tmsize_t>(ImageSource::kMostPixels) * 8;

/// The first picture of a TIFF in memory, which must outlive the file.
class TiffFile {
 public:
  explicit TiffFile(std::span<const std::uint8_t> bytes);
  TiffFile(const TiffFile&) = delete;
  TiffFile& operator=(const TiffFile&) = delete;

  bool isOpen() const { return tiff_ != nullptr; }
  TIFF* get() const { return tiff_.get(); }
  /// The first thing that went wrong.
  std::string message() const { return message_.empty() ? "it cannot be decoded" : message_; }

  /// A number that is in the file or has a default.
  template <typename Number>
  Number field(ttag_t tag) const {
    Number value = 0;
    TIFFGetFieldDefaulted(tiff_.get(), tag, &value);
    return value;
  }
  Data bytesOf(ttag_t tag) const;

 private:
  struct Input;
  struct Closer {
    void operator()(TIFF* tiff) const { TIFFClose(tiff); }
  };

  const std::span<const std::uint8_t> bytes_;
  toff_t position_ = 0;
  std::string message_;
  std::unique_ptr<TIFF, Closer> tiff_;
};

/// What the samples of a picture mean.
struct TiffForm {
  explicit TiffForm(const TiffFile& file);

  bool isGray() const { return photometric == PHOTOMETRIC_MINISBLACK || photometric == PHOTOMETRIC_MINISWHITE; }
  bool isPrinted() const { return photometric == PHOTOMETRIC_SEPARATED; }
  /// Lab and luminance, of which libtiff shows only what an old screen did.
  bool isMeasured() const { return photometric >= PHOTOMETRIC_CIELAB && photometric <= PHOTOMETRIC_LOGLUV; }
  std::uint16_t colors() const { return isGray() ? 1 : isPrinted() ? 4 : 3; }
  bool isDeep() const { return isPlain() && bits > 8; }
  bool isFloating() const { return sampleFormat == SAMPLEFORMAT_IEEEFP; }
  /// Whether samples are taken as they are; libtiff makes pixels of all others.
  bool isPlain() const {
    const bool isKnown = photometric == PHOTOMETRIC_RGB || isGray() || isPrinted();
    const bool isInteger = sampleFormat == SAMPLEFORMAT_UINT && ((bits >= 8 && bits <= 16) || bits == 32);
    return isKnown && (isInteger || (isFloating() && (bits == 16 || bits == 32 || bits == 64))) && samples >= colors();
  }

  std::uint32_t width, height;
  std::uint16_t bits, samples, photometric, sampleFormat;
  bool isPlanar;
  std::optional<std::uint16_t> alpha;  ///< which sample
  bool isPremultiplied = false;
};

}  // namespace tavrel
