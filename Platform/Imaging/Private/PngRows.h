#pragma once

#include <png.h>

#include <cstddef>
#include <cstdint>
#include <cstdio>
#include <functional>
#include <string>

namespace tavrel {

/// A PNG row by row, as straight R, G, B, A or B, G, R, A of the sRGB colour space. After a failure, which is told by
/// false, only `message` may be asked for.
class PngRowReader {
 public:
  /// From the file's beginning; it must outlive the reader.
  explicit PngRowReader(std::FILE* file);
  PngRowReader(const PngRowReader&) = delete;
  PngRowReader& operator=(const PngRowReader&) = delete;
  ~PngRowReader();

  bool begin();
  std::size_t width() const { return width_; }
  std::size_t height() const { return height_; }
  bool isInterlaced() const { return isInterlaced_; }
  bool hasAlpha() const { return hasAlpha_; }
  /// The next row, as B, G, R, A.
  bool read(std::uint8_t* row);
  const std::string& message() const { return message_; }

 private:
  std::FILE* const file_;
  std::string message_;
  png_structp png_ = nullptr;
  png_infop info_ = nullptr;
  std::size_t width_ = 0;
  std::size_t height_ = 0;
  bool isInterlaced_ = false;
  bool hasAlpha_ = false;
};

/// The same for writing, of R, G, B, A.
class PngRowWriter {
 public:
  /// Takes the file's bytes; false when it cannot.
  using Sink = std::function<bool(const std::uint8_t* bytes, std::size_t count)>;

  explicit PngRowWriter(Sink sink);
  PngRowWriter(const PngRowWriter&) = delete;
  PngRowWriter& operator=(const PngRowWriter&) = delete;
  ~PngRowWriter();

  bool begin(std::size_t width, std::size_t height);
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
