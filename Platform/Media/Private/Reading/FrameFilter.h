#pragma once

#include <memory>
#include <string>

#include "Platform/Foundation/Error.h"
#include "Platform/Media/Private/FFmpegHandles.h"

namespace tavrel {

/// Decoded pictures through a chain of libavfilter's filters. One thread at a time.
class FrameFilter {
 public:
  /// `description` is in libavfilter's syntax, https://ffmpeg.org/ffmpeg-filters.html#Filtergraph-description, for
  /// pictures like this one. Fails with `MediaErrorCode::conversionFailed`.
  static Expected<std::unique_ptr<FrameFilter>> create(const std::string& description, const AVFrame& like,
                                                       AVRational timeBase);

  /// Whether the filter takes this picture as well.
  bool fits(const AVFrame& picture) const;
  /// Adds a picture, of which a reference is kept; without one, what follows is the end.
  Expected<void> add(const AVFrame* picture);
  /// The next picture that is ready, with times in units of the time base; valid until the next call. nullptr when more
  /// are wanted, or after the last one.
  Expected<const AVFrame*> next();

 private:
  FrameFilter() = default;

  std::unique_ptr<AVFilterGraph, FFmpegDeleter<AVFilterGraph, avfilter_graph_free>> graph_;
  AVFilterContext* source_ = nullptr;
  AVFilterContext* sink_ = nullptr;
  AVRational timeBase_ = {};
  int width_ = 0;
  int height_ = 0;
  int format_ = 0;
  Frame frame_;
};

}  // namespace tavrel
