#include <fmt/format.h>

#include <cstring>
#include <limits>

#include "Platform/Capture/CaptureError.h"
#include "Platform/Capture/Private/H264Decoder.h"
#include "Platform/Media/FFmpegFunctions.h"

namespace tavrel {
namespace {

FrameMatrix matrixOf(AVColorSpace space) {
  switch (space) {
    case AVCOL_SPC_BT709: return FrameMatrix::bt709;
    case AVCOL_SPC_BT2020_NCL:
    case AVCOL_SPC_BT2020_CL: return FrameMatrix::bt2020;
    default: return FrameMatrix::bt601;
  }
}

tl::unexpected<Error> damaged(std::string_view why) {
  return failure(CaptureErrorCode::damagedFrame, fmt::format("a picture of H.264 {}", why));
}

}  // namespace

H264Decoder::H264Decoder() : packet_(av_packet_alloc()), picture_(av_frame_alloc()) {
  const AVCodec* codec = avcodec_find_decoder(AV_CODEC_ID_H264);
  context_ = codec ? avcodec_alloc_context3(codec) : nullptr;
  if (!context_) return;
  // Threads that work on several pictures would hold some back.
  context_->thread_type = FF_THREAD_SLICE;
  context_->flags |= AV_CODEC_FLAG_LOW_DELAY;
  context_->log_level_offset = AV_LOG_TRACE + 1;  // what is damaged is told by the result
  if (avcodec_open2(context_, codec, nullptr) < 0) avcodec_free_context(&context_);
}

H264Decoder::~H264Decoder() {
  av_frame_free(&picture_);
  av_packet_free(&packet_);
  avcodec_free_context(&context_);
}

Expected<RawFrame> H264Decoder::decode(const RawFrame& frame) {
  if (!context_ || !packet_ || !picture_) {
    return failure(CaptureErrorCode::unsupportedFormat, "this libavcodec cannot decode H.264");
  }
  const bool isTooLong = frame.byteCount > static_cast<std::size_t>(std::numeric_limits<int>::max() / 2);
  if (isTooLong || av_new_packet(packet_, static_cast<int>(frame.byteCount)) < 0) {
    return failure(CaptureErrorCode::outOfMemory, "no memory for a picture of H.264");
  }
  std::memcpy(packet_->data, frame.bytes, frame.byteCount);
  const int sent = avcodec_send_packet(context_, packet_);
  av_packet_unref(packet_);
  if (sent < 0) return damaged("is damaged");
  if (avcodec_receive_frame(context_, picture_) < 0) return damaged("waits for a key picture");
  if ((picture_->flags & AV_FRAME_FLAG_CORRUPT) != 0 || picture_->decode_error_flags != 0) return damaged("is damaged");
  if (picture_->width != frame.width || picture_->height != frame.height) {
    return damaged(
        fmt::format("has {}x{} pixels instead of {}x{}", picture_->width, picture_->height, frame.width, frame.height));
  }
  const bool isFull = picture_->format == AV_PIX_FMT_YUVJ420P;
  if (!isFull && picture_->format != AV_PIX_FMT_YUV420P) return damaged("is not of 8-bit 4:2:0");
  RawFrame decoded = frame;
  decoded.layout = FrameLayout::i420;
  decoded.matrix = picture_->colorspace == AVCOL_SPC_UNSPECIFIED ? frame.matrix : matrixOf(picture_->colorspace);
  if (picture_->color_range == AVCOL_RANGE_MPEG) decoded.range = FrameRange::limited;
  if (isFull || picture_->color_range == AVCOL_RANGE_JPEG) decoded.range = FrameRange::full;
  const auto plane = [&](int number) {
    return RawFrame::Plane{picture_->data[number], 0, static_cast<std::size_t>(picture_->linesize[number])};
  };
  decoded.bytes = plane(0).bytes;
  decoded.bytesPerRow = plane(0).bytesPerRow;
  decoded.chroma = {plane(1), plane(2)};
  return decoded;
}

}  // namespace tavrel
