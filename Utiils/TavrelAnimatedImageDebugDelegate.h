#pragma once

#include <cstddef>
#include <set>

#include "Platform/Foundation/Export.h"

namespace tavrel {

class TavrelAnimatedImage;

/// Watches an animated image at work; for tests and for tools that show the cache. Called on the main thread.
class TAVREL_API TavrelAnimatedImageDebugDelegate {
 public:
  virtual ~TavrelAnimatedImageDebugDelegate() = default;

  /// A frame is asked for; called before it is looked up.
  virtual void didRequestCachedFrame(TavrelAnimatedImage&, std::size_t /*index*/) {}
  /// A run of neighbouring frames was removed; these are in the cache at the time of the call.
  virtual void didUpdateCachedFrames(TavrelAnimatedImage&, const std::set<std::size_t>& /*indexesOfFramesInCache*/) {}
};

}  // namespace tavrel
