#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

extern "C" {
#include <libavutil/frame.h>
#include <libswscale/swscale.h>
}

#include "Platform/Foundation/Error.h"

namespace tavrel {

/// Turns decoded pictures of any layout into BGRA of the same size: libyuv for the common ones, libswscale for the
/// rest. One thread at a time.
class BgraConverter {
 public:
  /// `destination` has room for the picture's height times `bytesPerRow`.
  Expected<void> convert(const AVFrame& picture, std::uint8_t* destination, std::size_t bytesPerRow);

  /// The picture's matrix: what it says, else BT.601 up to 719 lines and BT.709 above.
  static AVColorSpace matrixOf(const AVFrame& picture);
  static bool isFullRange(const AVFrame& picture);

 private:
  struct ScalerDeleter {
    void operator()(SwsContext* context) const { sws_freeContext(context); }
  };

  Expected<void> convertWithScaler(const AVFrame& picture, std::uint8_t* destination, int bytesPerRow);
  bool prepareScaler(const AVFrame& picture);

  std::unique_ptr<SwsContext, ScalerDeleter> scaler_;
  int width_ = 0;
  int height_ = 0;
  int format_ = -1;
  AVColorSpace matrix_ = AVCOL_SPC_UNSPECIFIED;
  bool fullRange_ = false;
};

}  // namespace tavrel
