#pragma once

#include <memory>
#include <vector>

namespace tavrel {

class TavrelGPUImageFilter;
class TavrelGPUImagePicture;

/// What an effect is made of in the graph.
struct TavrelCaptureEffectNodes {
  /// In the order in which a frame passes them, each taking it at texture location 0. Empty: frames pass by.
  std::vector<std::shared_ptr<TavrelGPUImageFilter>> filters;
  /// Feed further inputs of the filters. Each is processed before the first frame, and again when its image changes.
  std::vector<std::shared_ptr<TavrelGPUImagePicture>> pictures;
};

}  // namespace tavrel
