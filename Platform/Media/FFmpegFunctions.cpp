#include "Platform/Media/FFmpegFunctions.h"

#include <dlfcn.h>

#include "Platform/Foundation/FatalAssertion.h"
#include "Platform/Foundation/ProcessEnd.h"

namespace tavrel {

const FFmpegFunctions& FFmpegFunctions::shared() {
  static const FFmpegFunctions& functions = []() -> const FFmpegFunctions& {
    void* const library = dlopen(TAVREL_FFMPEG_LIBRARY, RTLD_NOW | RTLD_LOCAL);
    const void* const table = library ? dlsym(library, "tavrelFFmpegFunctions") : nullptr;
    if (!table) fatalAssertion("FFmpeg's libraries cannot be loaded: {}", dlerror());  // NOLINT(concurrency-mt-unsafe)
    ProcessEnd::comeFirst();  // before the statics of those libraries
    return *static_cast<const FFmpegFunctions*>(table);
  }();
  return functions;
}

}  // namespace tavrel
