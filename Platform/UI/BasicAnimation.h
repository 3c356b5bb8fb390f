#pragma once

#include <optional>
#include <string>

#include "Platform/UI/Animation.h"

namespace tavrel {

/// Animates one value of a layer from a start to an end; both are optional:
///
///     given        from        to              given       from          to
///     from, to     from        to              by, to      to − by       to
///     from, by     from        from + by       to          the layer's   to
///     from         from        the layer's     by          the layer's   the layer's + by
///
/// With all three, `by` has no effect.
class TAVREL_API BasicAnimation : public Animation {
 public:
  /// A key path of `AnimatedValues`; any other stops the program.
  explicit BasicAnimation(std::string keyPath);

  const std::string& keyPath() const { return keyPath_; }
  std::optional<double> fromValue;
  std::optional<double> byValue;
  std::optional<double> toValue;

 protected:
  void applyProgress(double progress, double ownDuration, AnimatedValues& values) const override;

 private:
  const std::string keyPath_;
};

}  // namespace tavrel
