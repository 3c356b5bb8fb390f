#pragma once

#include <png.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <span>
#include <string>

#include "Platform/Imaging/ImageMetadata.h"

namespace tavrel {

/// A PNG row by row, as straight pixels of the file's colours: B, G, R, A of 8 bits, or R, G, B, A of 16 bits in the
/// host's order. After a failure, which is told by false, only `message` may be asked for.
class PngRowReader {
 public:
  /// From the file's beginning; it must outlive the reader.
  explicit PngRowReader(std::FILE* file);
  /// From memory, which must outlive the reader.
  explicit PngRowReader(std::span<const std::uint8_t> bytes);
  PngRowReader(const PngRowReader&) = delete;
  PngRowReader& operator=(const PngRowReader&) = delete;
  ~PngRowReader();

  /// Reads what stands before the pixels.
  bool begin();
  std::size_t width() const { return width_; }
  std::size_t height() const { return height_; }
  bool isInterlaced() const { return isInterlaced_; }
  bool hasAlpha() const { return hasAlpha_; }
  bool isDeep() const { return isDeep_; }
  const ImageMetadata& metadata() const { return metadata_; }

  /// Before the first row: whether pixels are to have 16 bits for each component; then `isDeep` must be true.
  bool prepare(bool deep);
  /// The next row; not of an interlaced picture.
  bool read(std::uint8_t* row);
  /// All rows, without padding.
  bool readAll(std::uint8_t* pixels);
  /// The metadata that stands behind the pixels.
  void end();
  const std::string& message() const { return message_; }

 private:
  PngRowReader();
  bool readHeader();
  void noteMetadata();
  bool finish();

  std::span<const std::uint8_t> rest_;
  std::string message_;
  png_structp png_ = nullptr;
  png_infop info_ = nullptr;
  std::size_t width_ = 0;
  std::size_t height_ = 0;
  std::size_t rowBytes_ = 0;
  bool isInterlaced_ = false;
  bool hasAlpha_ = false;
  bool isDeep_ = false;
  ImageMetadata metadata_;
};

/// What a PNG is like that is written.
struct PngForm {
  std::size_t width = 0;
  std::size_t height = 0;
  bool isDeep = false;  ///< 16 bits for each component
  bool isOpaque = false;
  const ImageMetadata& metadata;
};

/// The same for writing, of R, G, B, A of 8 bits, or of 16 bits in the host's order. The alpha of opaque ones is left
/// out.
class PngRowWriter {
 public:
  /// Takes the file's bytes; false when it cannot.
  using Sink = std::function<bool(const std::uint8_t* bytes, std::size_t count)>;

  explicit PngRowWriter(Sink sink);
  PngRowWriter(const PngRowWriter&) = delete;
  PngRowWriter& operator=(const PngRowWriter&) = delete;
  ~PngRowWriter();

  bool begin(const PngForm& form);
  bool write(const std::uint8_t* row);
  bool end();
  const std::string& message() const { return message_; }

 private:
  const Sink sink_;
  std::string message_;
  png_structp png_ = nullptr;
  png_infop info_ = nullptr;
};

}  // namespace tavrel
