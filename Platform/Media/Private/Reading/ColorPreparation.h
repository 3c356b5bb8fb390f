#pragma once

#include <memory>
#include <string>

#include "Platform/Graphics/PixelFormat.h"
#include "Platform/Media/Private/Reading/FrameFilter.h"

namespace tavrel {

/// Brings decoded pictures to the colours of BT.709, by libzimg.
///
/// High dynamic range (BT.2100, PQ or HLG) is tone-mapped by the curve of John Hable, "Uncharted 2: HDR Lighting" (Game
/// Developers Conference 2010), with white at 100 cd/m². Where RGB is made, standard dynamic range of other primaries
/// (BT.601, BT.2020) is converted; planes keep their colours and their tags. Pictures without tags are left alone, and
/// those of ten bits are made of all as they are. One thread at a time.
class ColorPreparation {
 public:
  explicit ColorPreparation(PixelFormat format) : format_(format) {}

  /// `picture` itself, or a converted one that is valid until the next call.
  Expected<const AVFrame*> prepare(const AVFrame& picture);

 private:
  std::string filtersFor(const AVFrame& picture) const;

  const PixelFormat format_;
  bool isRefused_ = false;
  std::string description_;
  std::unique_ptr<FrameFilter> filter_;
};

}  // namespace tavrel
