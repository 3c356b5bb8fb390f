#include "Platform/Imaging/Private/TiffFile.h"

#include <algorithm>
#include <cstdarg>
#include <cstdio>
#include <cstring>

namespace tavrel {

/// What libtiff calls.
struct TiffFile::Input {
  static TiffFile& self(thandle_t handle) { return *static_cast<TiffFile*>(handle); }
  static tmsize_t read(thandle_t handle, void* target, tmsize_t count) {
    TiffFile& file = self(handle);
    const std::size_t left = file.position_ < file.bytes_.size() ? file.bytes_.size() - file.position_ : 0;
    const std::size_t given = std::min(left, static_cast<std::size_t>(std::max<tmsize_t>(count, 0)));
    if (given > 0) std::memcpy(target, file.bytes_.data() + file.position_, given);
    file.position_ += given;
    return static_cast<tmsize_t>(given);
  }
  static tmsize_t write(thandle_t, void*, tmsize_t) { return 0; }
  static toff_t seek(thandle_t handle, toff_t offset, int origin) {
    TiffFile& file = self(handle);
    const toff_t base = origin == SEEK_CUR ? file.position_ : origin == SEEK_END ? file.bytes_.size() : 0;
    return file.position_ = base + offset;
  }
  static int close(thandle_t) { return 0; }
  static toff_t size(thandle_t handle) { return self(handle).bytes_.size(); }
  static int map(thandle_t handle, void** base, toff_t* size) {
    *base = const_cast<std::uint8_t*>(self(handle).bytes_.data());
    *size = self(handle).bytes_.size();
    return 1;
  }
  static void unmap(thandle_t, void*, toff_t) {}
  [[gnu::format(printf, 4, 0)]] static int noteError(TIFF*, void* handle, const char*, const char* format,
                                                     va_list arguments) {
    char text[256] = "";
    std::vsnprintf(text, sizeof text, format, arguments);
    if (self(handle).message_.empty()) self(handle).message_ = text;
    return 1;
  }
  static int ignoreWarning(TIFF*, void*, const char*, const char*, va_list) { return 1; }
};

TiffFile::TiffFile(std::span<const std::uint8_t> bytes) : bytes_(bytes) {
  const std::unique_ptr<TIFFOpenOptions, void (*)(TIFFOpenOptions*)> options(TIFFOpenOptionsAlloc(),
                                                                             &TIFFOpenOptionsFree);
  TIFFOpenOptionsSetMaxSingleMemAlloc(options.get(), kMostBytesOfTiff);
  TIFFOpenOptionsSetErrorHandlerExtR(options.get(), &Input::noteError, this);
  TIFFOpenOptionsSetWarningHandlerExtR(options.get(), &Input::ignoreWarning, this);
  // "m": bytes are read where they lie.
  tiff_.reset(TIFFClientOpenExt("picture", "rm", this, &Input::read, &Input::write, &Input::seek, &Input::close,
                                &Input::size, &Input::map, &Input::unmap, options.get()));
}

Data TiffFile::bytesOf(ttag_t tag) const {
  std::uint32_t count = 0;
  const std::uint8_t* bytes = nullptr;
  if (TIFFGetField(tiff_.get(), tag, &count, &bytes) != 1 || bytes == nullptr) return {};
  return {bytes, bytes + count};
}

TiffForm::TiffForm(const TiffFile& file)
    : width(file.field<std::uint32_t>(TIFFTAG_IMAGEWIDTH)),
      height(file.field<std::uint32_t>(TIFFTAG_IMAGELENGTH)),
      bits(file.field<std::uint16_t>(TIFFTAG_BITSPERSAMPLE)),
      samples(file.field<std::uint16_t>(TIFFTAG_SAMPLESPERPIXEL)),
      photometric(file.field<std::uint16_t>(TIFFTAG_PHOTOMETRIC)),
      sampleFormat(file.field<std::uint16_t>(TIFFTAG_SAMPLEFORMAT)),
      isPlanar(file.field<std::uint16_t>(TIFFTAG_PLANARCONFIG) == PLANARCONFIG_SEPARATE) {
  std::uint16_t count = 0;
  const std::uint16_t* kinds = nullptr;
  const bool isSaid = TIFFGetField(file.get(), TIFFTAG_EXTRASAMPLES, &count, &kinds) == 1 && kinds != nullptr;
  for (std::uint16_t i = 0; isSaid && i < count && !alpha; ++i) {
    if (kinds[i] != EXTRASAMPLE_UNSPECIFIED && colors() + i < samples) alpha = static_cast<std::uint16_t>(colors() + i);
    isPremultiplied = alpha && kinds[i] == EXTRASAMPLE_ASSOCALPHA;
  }
  // Some leave out what their fourth sample is.
  if (!isSaid && photometric == PHOTOMETRIC_RGB && samples == 4) alpha = 3;
}

}  // namespace tavrel
