#pragma once

#include <memory>

#include "Platform/Foundation/Export.h"
#include "Platform/Graphics/PixelBuffer.h"
#include "Platform/Media/SampleBuffer.h"

namespace tavrel {

/// An application's own processing of frames before they enter the graph.
class TAVREL_API TavrelExternalFilter {
 public:
  virtual ~TavrelExternalFilter() = default;

  /// Returns the same buffer, changed or not, or a new one. Called for every frame on the capture queue, which waits.
  virtual std::shared_ptr<PixelBuffer> processPixelBuffer(const std::shared_ptr<PixelBuffer>& pixelBuffer,
                                                          const SampleTiming& sampleTimingInfo) = 0;
};

/// Identifies a class of external filters. Must outlive every effect that uses it.
struct TavrelExternalFilterClass {
  /// The class's only instance.
  std::shared_ptr<TavrelExternalFilter> (*sharedInstance)() = nullptr;
};

/// The handle of a class that derives from `TavrelExternalFilter` and has a static member function `sharedInstance`
/// returning a shared_ptr to its only instance.
template <typename Filter>
const TavrelExternalFilterClass* externalFilterClassOf() {
  static constexpr TavrelExternalFilterClass handle = {
      []() -> std::shared_ptr<TavrelExternalFilter> { return Filter::sharedInstance(); }};
  return &handle;
}

}  // namespace tavrel
