#include "Platform/Capture/PipeWire/Private/PipeWireKnownFormats.h"

#include <algorithm>

namespace tavrel {
namespace {

constexpr PipeWireKnownFormat packed(spa_video_format format, std::uint8_t byteCount,
                                     std::array<PackedPixel::Channel, 3> channels, bool isYCbCr = false) {
  const bool isBigEndian = format == SPA_VIDEO_FORMAT_r210;
  return {format, FrameLayout::packed, {byteCount, isBigEndian, isYCbCr, channels}};
}
constexpr PipeWireKnownFormat ofBytes(spa_video_format format, std::uint8_t byteCount,
                                      std::array<std::uint8_t, 3> places) {
  return {format, FrameLayout::packed, PackedPixel::ofBytes(byteCount, places, true)};
}

/// Named and laid out as GStreamer's
/// (https://gstreamer.freedesktop.org/documentation/additional/design/mediatype-video-raw.html).
constexpr PipeWireKnownFormat kKnownFormats[] = {
    {SPA_VIDEO_FORMAT_BGRA, FrameLayout::bgra},
    {SPA_VIDEO_FORMAT_BGRx, FrameLayout::bgra},
    {SPA_VIDEO_FORMAT_RGBA, FrameLayout::rgba},
    {SPA_VIDEO_FORMAT_RGBx, FrameLayout::rgba},
    {SPA_VIDEO_FORMAT_ARGB, FrameLayout::argb},
    {SPA_VIDEO_FORMAT_xRGB, FrameLayout::argb},
    {SPA_VIDEO_FORMAT_ABGR, FrameLayout::abgr},
    {SPA_VIDEO_FORMAT_xBGR, FrameLayout::abgr},
    {SPA_VIDEO_FORMAT_NV12, FrameLayout::nv12},
    {SPA_VIDEO_FORMAT_NV21, FrameLayout::nv21},
    {SPA_VIDEO_FORMAT_I420, FrameLayout::i420},
    {SPA_VIDEO_FORMAT_YV12, FrameLayout::yv12},
    {SPA_VIDEO_FORMAT_YUY2, FrameLayout::yuyv},
    {SPA_VIDEO_FORMAT_UYVY, FrameLayout::uyvy},
    {SPA_VIDEO_FORMAT_YVYU, FrameLayout::yvyu},
    {SPA_VIDEO_FORMAT_VYUY, FrameLayout::vyuy},
    {SPA_VIDEO_FORMAT_NV16, FrameLayout::nv16},
    {SPA_VIDEO_FORMAT_NV61, FrameLayout::nv61},
    {SPA_VIDEO_FORMAT_Y42B, FrameLayout::i422},
    {SPA_VIDEO_FORMAT_NV24, FrameLayout::nv24},
    {SPA_VIDEO_FORMAT_Y444, FrameLayout::i444},
    {SPA_VIDEO_FORMAT_GBR, FrameLayout::gbr},
    {SPA_VIDEO_FORMAT_BGR, FrameLayout::bgr24},
    {SPA_VIDEO_FORMAT_RGB, FrameLayout::rgb24},
    {SPA_VIDEO_FORMAT_P010_10LE, FrameLayout::p010},
    {SPA_VIDEO_FORMAT_I420_10LE, FrameLayout::i010},
    {SPA_VIDEO_FORMAT_I422_10LE, FrameLayout::i210},
    {SPA_VIDEO_FORMAT_Y444_10LE, FrameLayout::i410},
    ofBytes(SPA_VIDEO_FORMAT_AYUV, 4, {1, 2, 3}),
    ofBytes(SPA_VIDEO_FORMAT_v308, 3, {0, 1, 2}),
    ofBytes(SPA_VIDEO_FORMAT_IYU2, 3, {1, 0, 2}),
    packed(SPA_VIDEO_FORMAT_xRGB_210LE, 4, {{{20, 10}, {10, 10}, {0, 10}}}),
    packed(SPA_VIDEO_FORMAT_ARGB_210LE, 4, {{{20, 10}, {10, 10}, {0, 10}}}),
    packed(SPA_VIDEO_FORMAT_xBGR_210LE, 4, {{{0, 10}, {10, 10}, {20, 10}}}),
    packed(SPA_VIDEO_FORMAT_ABGR_210LE, 4, {{{0, 10}, {10, 10}, {20, 10}}}),
    packed(SPA_VIDEO_FORMAT_RGBx_102LE, 4, {{{22, 10}, {12, 10}, {2, 10}}}),
    packed(SPA_VIDEO_FORMAT_RGBA_102LE, 4, {{{22, 10}, {12, 10}, {2, 10}}}),
    packed(SPA_VIDEO_FORMAT_BGRx_102LE, 4, {{{2, 10}, {12, 10}, {22, 10}}}),
    packed(SPA_VIDEO_FORMAT_BGRA_102LE, 4, {{{2, 10}, {12, 10}, {22, 10}}}),
    packed(SPA_VIDEO_FORMAT_r210, 4, {{{20, 10}, {10, 10}, {0, 10}}}),
    packed(SPA_VIDEO_FORMAT_ARGB64, 8, {{{16, 16}, {32, 16}, {48, 16}}}),
    packed(SPA_VIDEO_FORMAT_AYUV64, 8, {{{16, 16}, {32, 16}, {48, 16}}}, true),
    {SPA_VIDEO_FORMAT_ENCODED, FrameLayout::mjpeg, {}, SPA_MEDIA_SUBTYPE_mjpg},
    {SPA_VIDEO_FORMAT_ENCODED, FrameLayout::h264, {}, SPA_MEDIA_SUBTYPE_h264},
    packed(SPA_VIDEO_FORMAT_RGB16, 2, {{{11, 5}, {5, 6}, {0, 5}}}),
    packed(SPA_VIDEO_FORMAT_BGR16, 2, {{{0, 5}, {5, 6}, {11, 5}}}),
    packed(SPA_VIDEO_FORMAT_RGB15, 2, {{{10, 5}, {5, 5}, {0, 5}}}),
    packed(SPA_VIDEO_FORMAT_BGR15, 2, {{{0, 5}, {5, 5}, {10, 5}}}),
    {SPA_VIDEO_FORMAT_GRAY8, FrameLayout::gray8},
    {SPA_VIDEO_FORMAT_GRAY16_LE, FrameLayout::packed, PackedPixel::ofGray(16)},
    {SPA_VIDEO_FORMAT_GRAY16_BE, FrameLayout::packed, PackedPixel::ofGray(16, true)},
};

}  // namespace

std::span<const PipeWireKnownFormat> knownPipeWireFormats() { return kKnownFormats; }

const PipeWireKnownFormat* knownPipeWireFormat(std::uint32_t subtype, std::uint32_t format) {
  const auto found = std::ranges::find_if(kKnownFormats, [&](const PipeWireKnownFormat& known) {
    return known.subtype == subtype && (subtype != SPA_MEDIA_SUBTYPE_raw || known.format == format);
  });
  return found != std::end(kKnownFormats) ? &*found : nullptr;
}

}  // namespace tavrel
