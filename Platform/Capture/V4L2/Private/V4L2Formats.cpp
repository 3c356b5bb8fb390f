#include "Platform/Capture/V4L2/Private/V4L2Formats.h"

#include <linux/videodev2.h>

#include <algorithm>
#include <iterator>

namespace tavrel {
namespace {

using Channel = PackedPixel::Channel;

constexpr V4L2KnownFormat rgb16(std::uint32_t format, Channel red, Channel green, Channel blue,
                                bool isBigEndian = false) {
  return {format, FrameLayout::packed, {.byteCount = 2, .isBigEndian = isBigEndian, .channels = {{red, green, blue}}}};
}
constexpr V4L2KnownFormat yuv(std::uint32_t format, std::uint8_t byteCount, std::uint8_t first, bool isReversed) {
  const auto place = [&](int i) { return static_cast<std::uint8_t>(isReversed ? first - i : first + i); };
  return {format, FrameLayout::packed, PackedPixel::ofBytes(byteCount, {place(0), place(1), place(2)}, true)};
}
constexpr V4L2KnownFormat yuv16(std::uint32_t format, Channel y, Channel cb, Channel cr) {
  return {format, FrameLayout::packed, {.byteCount = 2, .isYCbCr = true, .channels = {{y, cb, cr}}}};
}
constexpr V4L2KnownFormat gray(std::uint32_t format, std::uint8_t bits, bool isBigEndian = false) {
  return {format, FrameLayout::packed, PackedPixel::ofGray(bits, isBigEndian)};
}

/// Cheapest first; those with few colours, or none, only where there is nothing else. As
/// https://docs.kernel.org/userspace-api/media/v4l/pixfmt.html describes them.
constexpr V4L2KnownFormat kKnownFormats[] = {
    {V4L2_PIX_FMT_ABGR32, FrameLayout::bgra},
    {V4L2_PIX_FMT_XBGR32, FrameLayout::bgra},
    {V4L2_PIX_FMT_BGR32, FrameLayout::bgra},
    {V4L2_PIX_FMT_RGBA32, FrameLayout::rgba},
    {V4L2_PIX_FMT_RGBX32, FrameLayout::rgba},
    {V4L2_PIX_FMT_ARGB32, FrameLayout::argb},
    {V4L2_PIX_FMT_XRGB32, FrameLayout::argb},
    {V4L2_PIX_FMT_RGB32, FrameLayout::argb},
    {V4L2_PIX_FMT_BGRA32, FrameLayout::abgr},
    {V4L2_PIX_FMT_BGRX32, FrameLayout::abgr},
    {V4L2_PIX_FMT_NV12, FrameLayout::nv12},
    {V4L2_PIX_FMT_NV12M, FrameLayout::nv12},
    {V4L2_PIX_FMT_NV21, FrameLayout::nv21},
    {V4L2_PIX_FMT_NV21M, FrameLayout::nv21},
    {V4L2_PIX_FMT_YUV420, FrameLayout::i420},
    {V4L2_PIX_FMT_YUV420M, FrameLayout::i420},
    {V4L2_PIX_FMT_YVU420, FrameLayout::yv12},
    {V4L2_PIX_FMT_YVU420M, FrameLayout::yv12},
    {V4L2_PIX_FMT_YUYV, FrameLayout::yuyv},
    {V4L2_PIX_FMT_UYVY, FrameLayout::uyvy},
    {V4L2_PIX_FMT_YVYU, FrameLayout::yvyu},
    {V4L2_PIX_FMT_VYUY, FrameLayout::vyuy},
    {V4L2_PIX_FMT_NV16, FrameLayout::nv16},
    {V4L2_PIX_FMT_NV16M, FrameLayout::nv16},
    {V4L2_PIX_FMT_NV61, FrameLayout::nv61},
    {V4L2_PIX_FMT_NV61M, FrameLayout::nv61},
    {V4L2_PIX_FMT_YUV422P, FrameLayout::i422},
    {V4L2_PIX_FMT_YUV422M, FrameLayout::i422},
    {V4L2_PIX_FMT_YVU422M, FrameLayout::yv16},
    {V4L2_PIX_FMT_NV24, FrameLayout::nv24},
    {V4L2_PIX_FMT_NV42, FrameLayout::nv42},
    {V4L2_PIX_FMT_YUV444M, FrameLayout::i444},
    {V4L2_PIX_FMT_YVU444M, FrameLayout::yv24},
    {V4L2_PIX_FMT_BGR24, FrameLayout::bgr24},
    {V4L2_PIX_FMT_RGB24, FrameLayout::rgb24},
    {V4L2_PIX_FMT_P010, FrameLayout::p010},
    yuv(V4L2_PIX_FMT_YUV24, 3, 0, false),
    yuv(V4L2_PIX_FMT_YUV32, 4, 1, false),
    yuv(V4L2_PIX_FMT_AYUV32, 4, 1, false),
    yuv(V4L2_PIX_FMT_XYUV32, 4, 1, false),
    yuv(V4L2_PIX_FMT_YUVA32, 4, 0, false),
    yuv(V4L2_PIX_FMT_YUVX32, 4, 0, false),
    yuv(V4L2_PIX_FMT_VUYA32, 4, 2, true),
    yuv(V4L2_PIX_FMT_VUYX32, 4, 2, true),
    {V4L2_PIX_FMT_MJPEG, FrameLayout::mjpeg},
    {V4L2_PIX_FMT_JPEG, FrameLayout::mjpeg},
    {V4L2_PIX_FMT_H264, FrameLayout::h264},
    {V4L2_PIX_FMT_BGR666,
     FrameLayout::packed,
     {.byteCount = 4, .isBigEndian = true, .channels = {{{14, 6}, {20, 6}, {26, 6}}}}},
    rgb16(V4L2_PIX_FMT_RGB565, {11, 5}, {5, 6}, {0, 5}),
    rgb16(V4L2_PIX_FMT_RGB565X, {11, 5}, {5, 6}, {0, 5}, true),
    rgb16(V4L2_PIX_FMT_RGB555, {10, 5}, {5, 5}, {0, 5}),
    rgb16(V4L2_PIX_FMT_ARGB555, {10, 5}, {5, 5}, {0, 5}),
    rgb16(V4L2_PIX_FMT_XRGB555, {10, 5}, {5, 5}, {0, 5}),
    rgb16(V4L2_PIX_FMT_RGB555X, {10, 5}, {5, 5}, {0, 5}, true),
    rgb16(V4L2_PIX_FMT_ARGB555X, {10, 5}, {5, 5}, {0, 5}, true),
    rgb16(V4L2_PIX_FMT_XRGB555X, {10, 5}, {5, 5}, {0, 5}, true),
    rgb16(V4L2_PIX_FMT_ABGR555, {0, 5}, {5, 5}, {10, 5}),
    rgb16(V4L2_PIX_FMT_XBGR555, {0, 5}, {5, 5}, {10, 5}),
    rgb16(V4L2_PIX_FMT_RGBA555, {11, 5}, {6, 5}, {1, 5}),
    rgb16(V4L2_PIX_FMT_RGBX555, {11, 5}, {6, 5}, {1, 5}),
    rgb16(V4L2_PIX_FMT_BGRA555, {1, 5}, {6, 5}, {11, 5}),
    rgb16(V4L2_PIX_FMT_BGRX555, {1, 5}, {6, 5}, {11, 5}),
    yuv16(V4L2_PIX_FMT_YUV565, {11, 5}, {5, 6}, {0, 5}),
    yuv16(V4L2_PIX_FMT_YUV555, {10, 5}, {5, 5}, {0, 5}),
    rgb16(V4L2_PIX_FMT_RGB444, {8, 4}, {4, 4}, {0, 4}),
    rgb16(V4L2_PIX_FMT_ARGB444, {8, 4}, {4, 4}, {0, 4}),
    rgb16(V4L2_PIX_FMT_XRGB444, {8, 4}, {4, 4}, {0, 4}),
    rgb16(V4L2_PIX_FMT_ABGR444, {0, 4}, {4, 4}, {8, 4}),
    rgb16(V4L2_PIX_FMT_XBGR444, {0, 4}, {4, 4}, {8, 4}),
    rgb16(V4L2_PIX_FMT_RGBA444, {12, 4}, {8, 4}, {4, 4}),
    rgb16(V4L2_PIX_FMT_RGBX444, {12, 4}, {8, 4}, {4, 4}),
    rgb16(V4L2_PIX_FMT_BGRA444, {4, 4}, {8, 4}, {12, 4}),
    rgb16(V4L2_PIX_FMT_BGRX444, {4, 4}, {8, 4}, {12, 4}),
    yuv16(V4L2_PIX_FMT_YUV444, {8, 4}, {4, 4}, {0, 4}),
    {V4L2_PIX_FMT_RGB332, FrameLayout::packed, {.byteCount = 1, .channels = {{{5, 3}, {2, 3}, {0, 2}}}}},
    {V4L2_PIX_FMT_GREY, FrameLayout::gray8},
    gray(V4L2_PIX_FMT_Y10, 10),
    gray(V4L2_PIX_FMT_Y12, 12),
    gray(V4L2_PIX_FMT_Y14, 14),
    gray(V4L2_PIX_FMT_Y16, 16),
    gray(V4L2_PIX_FMT_Y16_BE, 16, true),
};

}  // namespace

const V4L2KnownFormat* knownV4L2Format(std::uint32_t pixelFormat) {
  const auto* found = std::find_if(std::begin(kKnownFormats), std::end(kKnownFormats),
                                   [&](const V4L2KnownFormat& known) { return known.pixelFormat == pixelFormat; });
  return found != std::end(kKnownFormats) ? found : nullptr;
}

std::size_t costOfV4L2Format(std::uint32_t pixelFormat) {
  const V4L2KnownFormat* known = knownV4L2Format(pixelFormat);
  return known ? static_cast<std::size_t>(known - kKnownFormats) : std::size(kKnownFormats);
}

std::string nameOfV4L2Format(std::uint32_t pixelFormat) {
  std::string name;
  for (int shift = 0; shift < 32; shift += 8) {
    const auto character = static_cast<char>(pixelFormat >> shift & 0x7F);
    name += character >= ' ' && character < 127 ? character : '?';
  }
  while (name.ends_with(' ')) name.pop_back();
  return name + (pixelFormat >> 31 != 0 ? "-BE" : "");
}

}  // namespace tavrel
