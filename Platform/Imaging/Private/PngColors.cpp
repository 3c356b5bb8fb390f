#include "Platform/Imaging/Private/PngColors.h"

#include <cmath>
#include <cstring>
#include <optional>
#include <utility>

#include "Platform/Imaging/Private/ColorTransform.h"

namespace tavrel {
namespace {

/// A chunk of those that are kept for this; nullptr without one of this name and size.
const png_byte* bytesOfChunk(png_structp png, png_infop info, const char* name, std::size_t size) {
  png_unknown_chunkp chunks = nullptr;
  const int count = png_get_unknown_chunks(png, info, &chunks);
  for (int i = 0; i < count; ++i) {
    if (std::memcmp(chunks[i].name, name, 4) == 0 && chunks[i].size == size) return chunks[i].data;
  }
  return nullptr;
}

/// Code points of RGB pixels of full range; others are passed over.
std::optional<Data> profileOfCodePoints(png_structp png, png_infop info) {
  const png_byte* const codes = bytesOfChunk(png, info, "cICP", 4);  // primaries, transfer, matrix, full range
  if (!codes || codes[2] != 0 || codes[3] != 1) return std::nullopt;
  Data profile = makeColorProfile(codes[0], codes[1]);
  const bool isSRGB = codes[0] == 1 && codes[1] == 13;
  return isSRGB || !profile.empty() ? std::optional(std::move(profile)) : std::nullopt;
}

}  // namespace

Data colorProfileOfPng(png_structp png, png_infop info) {
  if (auto profile = profileOfCodePoints(png, info)) return *profile;

  png_charp name = nullptr;
  int compression = 0;
  png_bytep bytes = nullptr;
  png_uint_32 size = 0;
  if (png_get_iCCP(png, info, &name, &compression, &bytes, &size) != 0) return {bytes, bytes + size};
  if (bytesOfChunk(png, info, "sRGB", 1)) return {};

  ColorPrimaries primaries = kSRGBPrimaries;
  const bool hasPrimaries =
      png_get_valid(png, info, PNG_INFO_cHRM) != 0 &&
      png_get_cHRM(png, info, &primaries.white[0], &primaries.white[1], &primaries.red[0], &primaries.red[1],
                   &primaries.green[0], &primaries.green[1], &primaries.blue[0], &primaries.blue[1]) != 0;
  double gamma = 0;
  if (png_get_valid(png, info, PNG_INFO_gAMA) == 0 || png_get_gAMA(png, info, &gamma) == 0) gamma = 0;
  // Written beside sRGB and instead of it, 1/2.2 stands for sRGB's curve.
  constexpr double kGammaOfSRGB = 0.45455;
  if (std::abs(gamma / kGammaOfSRGB - 1) < 0.01) gamma = 0;
  if (gamma <= 0 && !hasPrimaries) return {};
  return makeColorProfile(primaries, gamma > 0 ? 1 / gamma : 0);
}

}  // namespace tavrel
