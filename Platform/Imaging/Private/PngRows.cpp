#include "Platform/Imaging/Private/PngRows.h"

#include <utility>

namespace tavrel {
namespace {

[[noreturn]] void noteAndLeave(png_structp png, png_const_charp message) {
  *static_cast<std::string*>(png_get_error_ptr(png)) = message;
  png_longjmp(png, 1);
}

void ignoreWarning(png_structp, png_const_charp) {}

void passOn(png_structp png, png_bytep bytes, std::size_t count) {
  if (!(*static_cast<const PngRowWriter::Sink*>(png_get_io_ptr(png)))(bytes, count)) png_error(png, "write failed");
}

}  // namespace

// libpng leaves a call that fails by longjmp: nothing with a destructor may be made behind a setjmp.

PngRowReader::PngRowReader(std::FILE* file)
    : file_(file), png_(png_create_read_struct(PNG_LIBPNG_VER_STRING, &message_, noteAndLeave, ignoreWarning)) {
  if (png_) info_ = png_create_info_struct(png_);
}

PngRowReader::~PngRowReader() { png_destroy_read_struct(&png_, &info_, nullptr); }

bool PngRowReader::begin() {
  if (!info_ || setjmp(png_jmpbuf(png_))) return false;
  png_init_io(png_, file_);
  png_read_info(png_, info_);
  width_ = png_get_image_width(png_, info_);
  height_ = png_get_image_height(png_, info_);
  isInterlaced_ = png_get_interlace_type(png_, info_) != PNG_INTERLACE_NONE;
  hasAlpha_ =
      (png_get_color_type(png_, info_) & PNG_COLOR_MASK_ALPHA) != 0 || png_get_valid(png_, info_, PNG_INFO_tRNS);
  png_set_alpha_mode(png_, PNG_ALPHA_PNG, PNG_DEFAULT_sRGB);
  png_set_expand(png_);
  png_set_scale_16(png_);
  png_set_gray_to_rgb(png_);
  png_set_bgr(png_);
  png_set_add_alpha(png_, 255, PNG_FILLER_AFTER);
  png_read_update_info(png_, info_);
  return png_get_rowbytes(png_, info_) == width_ * 4;
}

bool PngRowReader::read(std::uint8_t* row) {
  if (setjmp(png_jmpbuf(png_))) return false;
  png_read_row(png_, row, nullptr);
  return true;
}

PngRowWriter::PngRowWriter(Sink sink)
    : sink_(std::move(sink)),
      png_(png_create_write_struct(PNG_LIBPNG_VER_STRING, &message_, noteAndLeave, ignoreWarning)) {
  if (png_) info_ = png_create_info_struct(png_);
}

PngRowWriter::~PngRowWriter() { png_destroy_write_struct(&png_, &info_); }

bool PngRowWriter::begin(std::size_t width, std::size_t height) {
  if (!info_ || setjmp(png_jmpbuf(png_))) return false;
  png_set_write_fn(png_, const_cast<Sink*>(&sink_), passOn, nullptr);
  png_set_compression_buffer_size(png_, std::size_t{1} << 18);
  png_set_IHDR(png_, info_, static_cast<png_uint_32>(width), static_cast<png_uint_32>(height), 8, PNG_COLOR_TYPE_RGBA,
               PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
  png_set_sRGB_gAMA_and_cHRM(png_, info_, PNG_sRGB_INTENT_PERCEPTUAL);
  png_write_info(png_, info_);
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
