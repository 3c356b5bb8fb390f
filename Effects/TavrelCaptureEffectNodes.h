#pragma once

#include <memory>

#include "Effects/TavrelCaptureEffect.h"
#include "GPUImage/Filters/TavrelGPUImageFilter.h"
#include "GPUImage/Sources/TavrelGPUImagePicture.h"

namespace tavrel {

/// What an effect is made of in the graph.
struct TavrelCaptureEffectNodes {
  /// Takes the frames at texture location 0. nullptr for an effect that has no node: an external filter, or one that is
  /// incomplete.
  std::shared_ptr<TavrelGPUImageFilter> filter;
  /// Feeds the filter's second input; nullptr where there is none. Process it before the frames, once, and again when
  /// its image changes.
  std::shared_ptr<TavrelGPUImagePicture> picture;
};

/// Makes the nodes for frames of `frameSize`, as the camera does; for chains of one's own, with other sources. An
/// animated sticker and a filter effect hand out nodes that they own, and can be in one chain only. Waits for the
/// video-processing queue.
TAVREL_API TavrelCaptureEffectNodes TavrelMakeCaptureEffectNodes(TavrelCaptureEffect& effect, Size frameSize);

}  // namespace tavrel
