#pragma once

#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "Interruption.h"
#include "Report.h"
#include "TavrelCaptureBase.h"

namespace tavrel::tool {

/// A picture behind effects; a large one has its pixels on the disk.
struct FilteredPicture {
  std::shared_ptr<Image> image;
  std::optional<LargeImage> large;
};

/// Sends a picture through effects: at once where it fits, else part by part, with the same pixels.
class PictureFiltering {
 public:
  /// The graph takes up to about `memory` bytes.
  PictureFiltering(TavrelCaptureEffectChain& effects, double memory) : effects_(effects), memory_(memory) {}

  /// No image, after saying why, when there can be none or the person at the terminal wants no more.
  FilteredPicture run(const std::shared_ptr<Image>& source, const std::optional<LargeImage>& large);

 private:
  bool fits(Size size) const;
  std::vector<Rect> parts(Size whole) const;
  bool add(const Rect& output, const std::shared_ptr<Image>& source, Size whole, std::optional<LargeImage>& result);
  std::shared_ptr<Image> filtered(TavrelCaptureEffectChain& effects, const std::shared_ptr<Image>& source);

  TavrelCaptureEffectChain& effects_;
  const double memory_;
  double bytesPerPixel_ = 0;
  const Interruption interruption_;
  ProgressBar progress_;
};

}  // namespace tavrel::tool
