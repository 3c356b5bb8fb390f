#include "Platform/Capture/Private/FeedPictures.h"

#include <libyuv/convert_from_argb.h>
#include <libyuv/planar_functions.h>

namespace tavrel {

std::size_t feedStride(CameraFeedFormat format, int width) {
  const auto columns = static_cast<std::size_t>(width);
  switch (format) {
    case CameraFeedFormat::bgra: return columns * 4;
    case CameraFeedFormat::nv12: return (columns + 3) / 4 * 4;
    case CameraFeedFormat::yuy2: return (columns * 2 + 3) / 4 * 4;
  }
  return 0;
}

std::size_t feedByteCount(CameraFeedFormat format, std::size_t stride, int height) {
  const auto rows = static_cast<std::size_t>(height);
  return stride * (format == CameraFeedFormat::nv12 ? rows * 3 / 2 : rows);
}

void writeFeedPicture(const PixelBufferSnapshot& picture, CameraFeedFormat format, std::uint8_t* bytes,
                      std::size_t stride) {
  const int width = static_cast<int>(picture.width());
  const int height = static_cast<int>(picture.height());
  const int from = static_cast<int>(picture.bytesPerRow());
  const int to = static_cast<int>(stride);
  switch (format) {
    case CameraFeedFormat::bgra: libyuv::ARGBCopy(picture.bytes(), from, bytes, to, width, height); return;
    case CameraFeedFormat::nv12:
      libyuv::ARGBToNV12(picture.bytes(), from, bytes, to, bytes + stride * picture.height(), to, width, height);
      return;
    case CameraFeedFormat::yuy2: libyuv::ARGBToYUY2(picture.bytes(), from, bytes, to, width, height); return;
  }
}

}  // namespace tavrel
