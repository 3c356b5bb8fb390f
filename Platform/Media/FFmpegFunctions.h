#pragma once

extern "C" {
#include <libavcodec/avcodec.h>
#include <libavcodec/bsf.h>
#include <libavfilter/avfilter.h>
#include <libavfilter/buffersink.h>
#include <libavfilter/buffersrc.h>
#include <libavformat/avformat.h>
}

namespace tavrel {

/// The functions of FFmpeg's libraries that link a hundred others, which take longer to load than a small picture to
/// filter. So they are loaded when one of them is first called, by way of a library of ours that holds nothing but this
/// table; where that fails the process stops, with the loader's words. For the library only; not installed. Any thread.
struct FFmpegFunctions {
#define TAVREL_FUNCTION(name) decltype(&::name) name;  // NOLINT(bugprone-macro-parentheses)
#include "Platform/Media/FFmpegFunctions.inc"

  static const FFmpegFunctions& shared();
};

template <auto function>
struct FFmpegFunction;

/// Can be called, and handed on as a pointer.
template <typename Result, typename... Arguments, Result (*FFmpegFunctions::*function)(Arguments...)>
struct FFmpegFunction<function> {
  using Pointer = Result (*)(Arguments...);
  operator Pointer() const { return FFmpegFunctions::shared().*function; }
};

// Under their own names, which inside the namespace stand before the functions themselves.
#define TAVREL_FUNCTION(name) inline constexpr FFmpegFunction<&FFmpegFunctions::name> name;
#include "Platform/Media/FFmpegFunctions.inc"

/// Inline in FFmpeg's header, where it calls the function itself.
inline constexpr auto avio_tell = [](AVIOContext* context) { return avio_seek(context, 0, SEEK_CUR); };

}  // namespace tavrel
