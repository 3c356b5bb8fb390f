#pragma once

#include <cstddef>
#include <set>

#include "Platform/Foundation/Export.h"

namespace tavrel {

class TavrelAnimatedImage;

/// Observes an animated image's cache, for tests and tools. Called on the main thread.
class TAVREL_API TavrelAnimatedImageDebugDelegate {
 public:
  virtual ~TavrelAnimatedImageDebugDelegate() = default;

  /// A frame was requested; called before it is looked up.
  virtual void didRequestCachedFrame(TavrelAnimatedImage&, std::size_t /*index*/) {}
  /// A range of frames was removed; the argument lists those still cached.
  virtual void didUpdateCachedFrames(TavrelAnimatedImage&, const std::set<std::size_t>& /*indexesOfFramesInCache*/) {}
};

}  // namespace tavrel
