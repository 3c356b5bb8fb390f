#pragma once

#include <memory>
#include <string>
#include <vector>

#include "Interruption.h"
#include "Report.h"
#include "TavrelCaptureBase.h"

namespace tavrel::tool {

/// Sends a picture through effects: at once where it fits, else part by part, with the same pixels.
class PictureFiltering {
 public:
  /// The graph takes up to about `memory` bytes.
  PictureFiltering(TavrelCaptureEffectChain& effects, double memory) : effects_(effects), memory_(memory) {}

  /// Nothing, after saying why, when the graph gave none or the person at the terminal wants no more.
  std::shared_ptr<Image> run(const std::shared_ptr<Image>& source);

 private:
  struct Result;

  bool fits(Size size) const;
  std::vector<Rect> parts(Size whole) const;
  std::shared_ptr<Image> filtered(TavrelCaptureEffectChain& effects, const std::shared_ptr<Image>& source);

  TavrelCaptureEffectChain& effects_;
  const double memory_;
  const Interruption interruption_;
  ProgressBar progress_;
};

}  // namespace tavrel::tool
