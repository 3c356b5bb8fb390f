#pragma once

extern "C" {
#include <libavutil/frame.h>
#include <libswresample/swresample.h>
}

#include <memory>
#include <utility>

#include "Platform/Media/FFmpegFunctions.h"

namespace tavrel {

/// Owns an object of FFmpeg's that is freed through a pointer to its pointer.
template <typename T, auto Free>
struct FFmpegDeleter {
  void operator()(T* object) const { Free(&object); }
};

using CodecContext = std::unique_ptr<AVCodecContext, FFmpegDeleter<AVCodecContext, avcodec_free_context>>;
using Packet = std::unique_ptr<AVPacket, FFmpegDeleter<AVPacket, av_packet_free>>;
using Frame = std::unique_ptr<AVFrame, FFmpegDeleter<AVFrame, av_frame_free>>;
using Resampler = std::unique_ptr<SwrContext, FFmpegDeleter<SwrContext, swr_free>>;
using CodecParameters = std::unique_ptr<AVCodecParameters, FFmpegDeleter<AVCodecParameters, avcodec_parameters_free>>;
using InputFormat = std::unique_ptr<AVFormatContext, FFmpegDeleter<AVFormatContext, avformat_close_input>>;

struct OutputFormatDeleter {
  void operator()(AVFormatContext* context) const { avformat_free_context(context); }
};
using OutputFormat = std::unique_ptr<AVFormatContext, OutputFormatDeleter>;

struct CodecDictionaryDeleter {
  void operator()(AVDictionary* dictionary) const { av_dict_free(&dictionary); }
};
using CodecDictionary = std::unique_ptr<AVDictionary, CodecDictionaryDeleter>;

}  // namespace tavrel
