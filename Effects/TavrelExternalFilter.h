#pragma once

#include <memory>

#include "Platform/Foundation/Export.h"
#include "Platform/Graphics/PixelBuffer.h"
#include "Platform/Media/SampleBuffer.h"

namespace tavrel {

/// An application's own treatment of camera frames, before they enter the graph.
class TAVREL_API TavrelExternalFilter {
 public:
  virtual ~TavrelExternalFilter() = default;

  /// The frame to go on with: the same buffer, changed or not, or a new one. Called for every frame on the capture
  /// queue, which waits.
  virtual std::shared_ptr<PixelBuffer> processPixelBuffer(const std::shared_ptr<PixelBuffer>& pixelBuffer,
                                                          const SampleTiming& sampleTimingInfo) = 0;
};

/// Stands for a class of external filters. Has no owner: it must outlive every descriptor that names it.
struct TavrelExternalFilterClass {
  /// The class's one object.
  std::shared_ptr<TavrelExternalFilter> (*sharedInstance)() = nullptr;
};

/// The handle of a class that derives from `TavrelExternalFilter` and has a static member function `sharedInstance`
/// returning a shared pointer to its one object.
template <typename Filter>
const TavrelExternalFilterClass* externalFilterClassOf() {
  static constexpr TavrelExternalFilterClass handle = {
      []() -> std::shared_ptr<TavrelExternalFilter> { return Filter::sharedInstance(); }};
  return &handle;
}

}  // namespace tavrel
