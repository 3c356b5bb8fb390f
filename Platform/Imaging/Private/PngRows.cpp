#include "Platform/Imaging/Private/PngRows.h"

#include <algorithm>
#include <bit>
#include <cstring>
#include <utility>

#include "Platform/Imaging/Private/PngColors.h"

namespace tavrel {
namespace {

constexpr char kXmpKeyword[] = "XML:com.adobe.xmp";

[[noreturn]] void noteAndLeave(png_structp png, png_const_charp message) {
  *static_cast<std::string*>(png_get_error_ptr(png)) = message;
  png_longjmp(png, 1);
}

void ignoreWarning(png_structp, png_const_charp) {}

void takeFrom(png_structp png, png_bytep bytes, std::size_t count) {
  auto& rest = *static_cast<std::span<const std::uint8_t>*>(png_get_io_ptr(png));
  if (count > rest.size()) png_error(png, "the file ends early");
  std::memcpy(bytes, rest.data(), count);
  rest = rest.subspan(count);
}

void passOn(png_structp png, png_bytep bytes, std::size_t count) {
  if (!(*static_cast<const PngRowWriter::Sink*>(png_get_io_ptr(png)))(bytes, count)) png_error(png, "write failed");
}

void writeMetadata(png_structp png, png_infop info, const ImageMetadata& metadata) {
  if (metadata.colorProfile.empty()) {
    png_set_sRGB_gAMA_and_cHRM(png, info, PNG_sRGB_INTENT_PERCEPTUAL);
  } else {
    png_set_iCCP(png, info, "ICC profile", PNG_COMPRESSION_TYPE_BASE, metadata.colorProfile.data(),
                 static_cast<png_uint_32>(metadata.colorProfile.size()));
  }
  if (!metadata.exif.empty()) {
    png_set_eXIf_1(png, info, static_cast<png_uint_32>(metadata.exif.size()),
                   const_cast<png_bytep>(metadata.exif.data()));
  }
  if (!metadata.xmp.empty()) {
    char* const packet = static_cast<char*>(png_malloc(png, metadata.xmp.size() + 1));
    std::memcpy(packet, metadata.xmp.data(), metadata.xmp.size());
    packet[metadata.xmp.size()] = '\0';
    png_text text{};
    text.compression = PNG_ITXT_COMPRESSION_NONE;
    text.key = const_cast<char*>(kXmpKeyword);
    text.text = packet;
    png_set_text(png, info, &text, 1);  // which copies
    png_free(png, packet);
  }
}

}  // namespace

// libpng leaves a call that fails by longjmp: nothing with a destructor may be made behind a setjmp.

PngRowReader::PngRowReader()
    : png_(png_create_read_struct(PNG_LIBPNG_VER_STRING, &message_, noteAndLeave, ignoreWarning)) {
  if (!png_) return;
  info_ = png_create_info_struct(png_);
  // libpng 1.6 does not know the first one, and takes the second for the last word on colours.
  static const png_byte kNames[] = "cICP\0sRGB";
  png_set_keep_unknown_chunks(png_, PNG_HANDLE_CHUNK_ALWAYS, kNames, 2);
}

PngRowReader::PngRowReader(std::FILE* file) : PngRowReader() {
  if (png_) png_init_io(png_, file);
}

PngRowReader::PngRowReader(std::span<const std::uint8_t> bytes) : PngRowReader() {
  rest_ = bytes;
  if (png_) png_set_read_fn(png_, &rest_, takeFrom);
}

PngRowReader::~PngRowReader() { png_destroy_read_struct(&png_, &info_, nullptr); }

bool PngRowReader::readHeader() {
  if (!info_ || setjmp(png_jmpbuf(png_))) return false;
  png_read_info(png_, info_);
  width_ = png_get_image_width(png_, info_);
  height_ = png_get_image_height(png_, info_);
  isDeep_ = png_get_bit_depth(png_, info_) == 16;
  isInterlaced_ = png_get_interlace_type(png_, info_) != PNG_INTERLACE_NONE;
  hasAlpha_ =
      (png_get_color_type(png_, info_) & PNG_COLOR_MASK_ALPHA) != 0 || png_get_valid(png_, info_, PNG_INFO_tRNS);
  return true;
}

bool PngRowReader::begin() {
  if (!readHeader()) return false;
  noteMetadata();
  metadata_.colorProfile = colorProfileOfPng(png_, info_);
  return true;
}

void PngRowReader::noteMetadata() {
  png_uint_32 size = 0;
  png_bytep exif = nullptr;
  if (png_get_eXIf_1(png_, info_, &size, &exif) != 0) metadata_.exif.assign(exif, exif + size);
  png_textp texts = nullptr;
  int count = 0;
  png_get_text(png_, info_, &texts, &count);
  for (int i = 0; i < count; ++i) {
    const std::size_t length = std::max(texts[i].itxt_length, texts[i].text_length);
    if (std::strcmp(texts[i].key, kXmpKeyword) == 0) metadata_.xmp.assign(texts[i].text, texts[i].text + length);
  }
}

bool PngRowReader::prepare(bool deep) {
  if (setjmp(png_jmpbuf(png_))) return false;
  png_set_expand(png_);
  png_set_gray_to_rgb(png_);
  if (deep) {
    if constexpr (std::endian::native == std::endian::little) png_set_swap(png_);
  } else {
    png_set_scale_16(png_);
    png_set_bgr(png_);
  }
  png_set_add_alpha(png_, deep ? 65535 : 255, PNG_FILLER_AFTER);
  png_set_interlace_handling(png_);
  png_read_update_info(png_, info_);
  rowBytes_ = png_get_rowbytes(png_, info_);
  return rowBytes_ == width_ * (deep ? 8 : 4);
}

bool PngRowReader::read(std::uint8_t* row) {
  if (setjmp(png_jmpbuf(png_))) return false;
  png_read_row(png_, row, nullptr);
  return true;
}

bool PngRowReader::readAll(std::uint8_t* pixels) {
  if (setjmp(png_jmpbuf(png_))) return false;
  const int passes = isInterlaced_ ? PNG_INTERLACE_ADAM7_PASSES : 1;
  for (int pass = 0; pass < passes; ++pass) {
    for (std::size_t y = 0; y < height_; ++y) png_read_row(png_, pixels + y * rowBytes_, nullptr);
  }
  return true;
}

bool PngRowReader::finish() {
  if (setjmp(png_jmpbuf(png_))) return false;
  png_read_end(png_, info_);
  return true;
}

void PngRowReader::end() {
  if (finish()) noteMetadata();
}

PngRowWriter::PngRowWriter(Sink sink)
    : sink_(std::move(sink)),
      png_(png_create_write_struct(PNG_LIBPNG_VER_STRING, &message_, noteAndLeave, ignoreWarning)) {
  if (png_) info_ = png_create_info_struct(png_);
}

PngRowWriter::~PngRowWriter() { png_destroy_write_struct(&png_, &info_); }

bool PngRowWriter::begin(const PngForm& form) {
  if (!info_ || setjmp(png_jmpbuf(png_))) return false;
  png_set_write_fn(png_, const_cast<Sink*>(&sink_), passOn, nullptr);
  png_set_compression_buffer_size(png_, std::size_t{1} << 18);
  // Files are a hundredth larger than with zlib's default, in little more than half the time.
  png_set_compression_level(png_, 5);
  png_set_IHDR(png_, info_, static_cast<png_uint_32>(form.width), static_cast<png_uint_32>(form.height),
               form.isDeep ? 16 : 8, form.isOpaque ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_RGBA, PNG_INTERLACE_NONE,
               PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  writeMetadata(png_, info_, form.metadata);
  png_write_info(png_, info_);
  if (form.isOpaque) png_set_filler(png_, 0, PNG_FILLER_AFTER);
  if constexpr (std::endian::native == std::endian::little) {
    if (form.isDeep) png_set_swap(png_);
  }
  return true;
}

bool PngRowWriter::write(const std::uint8_t* row) {
  if (setjmp(png_jmpbuf(png_))) return false;
  png_write_row(png_, row);
  return true;
}

bool PngRowWriter::end() {
  if (setjmp(png_jmpbuf(png_))) return false;
  png_write_end(png_, nullptr);
  return true;
}

}  // namespace tavrel
