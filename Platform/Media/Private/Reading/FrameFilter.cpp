#include "Platform/Media/Private/Reading/FrameFilter.h"

#include <fmt/format.h>

#include "Platform/Media/MediaError.h"
#include "Platform/Media/Private/FFmpegError.h"
#include "Platform/Media/Private/FFmpegLog.h"

namespace tavrel {
namespace {

Expected<void> checked(int result, const char* what) {
  if (result >= 0) return {};
  return failure(MediaErrorCode::conversionFailed, fmt::format("{}: {}", what, ffmpegErrorText(result)));
}

}  // namespace

Expected<std::unique_ptr<FrameFilter>> FrameFilter::create(const std::string& description, const AVFrame& like,
                                                           AVRational timeBase) {
  quietFFmpegLog();
  std::unique_ptr<FrameFilter> filter(new FrameFilter);
  filter->timeBase_ = timeBase;
  filter->width_ = like.width;
  filter->height_ = like.height;
  filter->format_ = like.format;
  filter->frame_.reset(av_frame_alloc());
  filter->graph_.reset(avfilter_graph_alloc());
  if (!filter->frame_ || !filter->graph_)
    return failure(MediaErrorCode::allocationFailed, "there is no memory left for a filter");
  AVFilterGraph* const graph = filter->graph_.get();
  const AVRational aspect = like.sample_aspect_ratio.num > 0 ? like.sample_aspect_ratio : AVRational{1, 1};
  const std::string input = fmt::format("video_size={}x{}:pix_fmt={}:time_base={}/{}:pixel_aspect={}/{}", like.width,
                                        like.height, like.format, timeBase.num, timeBase.den, aspect.num, aspect.den);
  int result = avfilter_graph_create_filter(&filter->source_, avfilter_get_by_name("buffer"), "in", input.c_str(),
                                            nullptr, graph);
  if (result >= 0) {
    result = avfilter_graph_create_filter(&filter->sink_, avfilter_get_by_name("buffersink"), "out", nullptr, nullptr,
                                          graph);
  }
  AVFilterInOut* outputs = avfilter_inout_alloc();
  AVFilterInOut* inputs = avfilter_inout_alloc();
  if (!outputs || !inputs) result = AVERROR(ENOMEM);
  if (result >= 0) {
    *outputs = {.name = av_strdup("in"), .filter_ctx = filter->source_, .pad_idx = 0, .next = nullptr};
    *inputs = {.name = av_strdup("out"), .filter_ctx = filter->sink_, .pad_idx = 0, .next = nullptr};
    result = avfilter_graph_parse_ptr(graph, description.c_str(), &inputs, &outputs, nullptr);
  }
  avfilter_inout_free(&inputs);
  avfilter_inout_free(&outputs);
  if (result >= 0) result = avfilter_graph_config(graph, nullptr);
  if (auto made = checked(result, "pictures cannot be prepared"); !made) return tl::unexpected(made.error());
  return filter;
}

bool FrameFilter::fits(const AVFrame& picture) const {
  return picture.width == width_ && picture.height == height_ && picture.format == format_;
}

Expected<void> FrameFilter::add(const AVFrame* picture) {
  // Without the flag the frame would be taken from the caller.
  return checked(
      av_buffersrc_add_frame_flags(source_, const_cast<AVFrame*>(picture), picture ? AV_BUFFERSRC_FLAG_KEEP_REF : 0),
      "a picture cannot be prepared");
}

Expected<const AVFrame*> FrameFilter::next() {
  av_frame_unref(frame_.get());
  const int result = av_buffersink_get_frame(sink_, frame_.get());
  if (result == AVERROR(EAGAIN) || result == AVERROR_EOF) return nullptr;
  if (auto filtered = checked(result, "a picture cannot be prepared"); !filtered)
    return tl::unexpected(filtered.error());
  const AVRational base = av_buffersink_get_time_base(sink_);
  frame_->pts = av_rescale_q(frame_->pts, base, timeBase_);
  return frame_.get();
}

}  // namespace tavrel
