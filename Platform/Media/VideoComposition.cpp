#include "Platform/Media/VideoComposition.h"

#include <algorithm>
#include <cmath>

#include "Platform/Foundation/Finite.h"
#include "Platform/Media/Asset.h"
#include "Platform/Media/Private/Composing/Ramps.h"

namespace tavrel {
namespace {

AffineTransform between(const AffineTransform& a, const AffineTransform& b, double fraction) {
  const auto mix = [fraction](double from, double to) { return from + (to - from) * fraction; };
  return {mix(a.a, b.a), mix(a.b, b.b), mix(a.c, b.c), mix(a.d, b.d), mix(a.tx, b.tx), mix(a.ty, b.ty)};
}

struct Upright {
  AffineTransform transform;
  Size size;
};

/// The track's transform, moved so that the picture begins at the origin.
Upright uprightOf(const AssetTrack& track) {
  const AffineTransform& transform = track.preferredTransform();
  const Size size = track.naturalSize();
  Point low{1e9, 1e9};
  Point high{-1e9, -1e9};
  for (const Point corner :
       {Point{0, 0}, Point{size.width, 0}, Point{0, size.height}, Point{size.width, size.height}}) {
    const Point at = transform.apply(corner);
    low = {std::min(low.x, at.x), std::min(low.y, at.y)};
    high = {std::max(high.x, at.x), std::max(high.y, at.y)};
  }
  return {transform.concatenating(AffineTransform::makeTranslation(-low.x, -low.y)),
          {std::round(high.x - low.x), std::round(high.y - low.y)}};
}

}  // namespace

void VideoCompositionLayerInstruction::setTransform(const AffineTransform& transform, MediaTime time) {
  setTransformRamp(transform, transform, {time, MediaTime::zero()});
}

void VideoCompositionLayerInstruction::setTransformRamp(const AffineTransform& start, const AffineTransform& end,
                                                        const MediaTimeRange& timeRange) {
  if (!isFinite(start) || !isFinite(end)) return;
  addRamp(transforms_, {start, end, timeRange});
}

void VideoCompositionLayerInstruction::setOpacity(double opacity, MediaTime time) {
  setOpacityRamp(opacity, opacity, {time, MediaTime::zero()});
}

void VideoCompositionLayerInstruction::setOpacityRamp(double start, double end, const MediaTimeRange& timeRange) {
  if (!isFinite(start) || !isFinite(end)) return;
  addRamp(opacities_, {start, end, timeRange});
}

AffineTransform VideoCompositionLayerInstruction::transformAt(MediaTime time) const {
  if (transforms_.empty()) return {};
  const Ramp<AffineTransform>& ramp = rampAt(transforms_, time);
  if (time < ramp.timeRange.start) return ramp.start;
  return between(ramp.start, ramp.end, fractionOf(ramp.timeRange, time));
}

double VideoCompositionLayerInstruction::opacityAt(MediaTime time) const {
  return std::clamp(levelAt(opacities_, time), 0.0, 1.0);
}

std::shared_ptr<MutableVideoComposition> MutableVideoComposition::create() {
  return std::shared_ptr<MutableVideoComposition>(new MutableVideoComposition);
}

std::shared_ptr<MutableVideoComposition> MutableVideoComposition::createWithPropertiesOfAsset(const Asset& asset) {
  auto composition = create();
  VideoCompositionInstruction instruction;
  instruction.timeRange = {MediaTime::zero(), asset.duration()};
  double rate = 0;
  for (const auto& track : asset.tracksWithMediaType(MediaType::video)) {
    const Upright upright = uprightOf(*track);
    if (isZero(composition->renderSize_)) composition->renderSize_ = upright.size;
    rate = std::max(rate, track->nominalFrameRate());
    instruction.layerInstructions.emplace_back(track->trackID());
    instruction.layerInstructions.back().setTransform(upright.transform, MediaTime::zero());
  }
  // 30000/1001 and the like come out exactly in this timescale.
  constexpr std::int32_t kTimescale = 120'000;
  if (rate > 0) composition->frameDuration_ = MediaTime::fromSeconds(1 / rate, kTimescale);
  composition->instructions_ = {std::move(instruction)};
  return composition;
}

}  // namespace tavrel
