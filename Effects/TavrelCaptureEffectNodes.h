#pragma once

#include <memory>
#include <vector>

namespace tavrel {

class TavrelGPUImageFilter;
class TavrelGPUImagePicture;

/// The nodes of an effect.
struct TavrelCaptureEffectNodes {
  /// In the order a frame passes them, each at texture location 0. May be empty.
  std::vector<std::shared_ptr<TavrelGPUImageFilter>> filters;
  /// Sources of the filters' other inputs. Processed before the first frame, and again when the image changes.
  std::vector<std::shared_ptr<TavrelGPUImagePicture>> pictures;
};

}  // namespace tavrel
