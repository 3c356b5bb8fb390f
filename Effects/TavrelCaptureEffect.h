#pragma once

#include <memory>

#include "Platform/Foundation/Export.h"

namespace tavrel {

/// Describes one effect that the camera is asked for. It carries parameters and draws nothing itself.
class TAVREL_API TavrelCaptureEffect {
 public:
  virtual ~TavrelCaptureEffect() = default;

  /// An independent new descriptor of the same class; each class says what it takes over. Observers are not.
  virtual std::shared_ptr<TavrelCaptureEffect> copy() const = 0;
};

}  // namespace tavrel
