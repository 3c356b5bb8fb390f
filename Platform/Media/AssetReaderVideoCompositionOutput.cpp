#include "Platform/Media/AssetReaderVideoCompositionOutput.h"

#include <algorithm>
#include <cmath>
#include <utility>

#include "Platform/Foundation/FatalAssertion.h"
#include "Platform/Graphics/PixelBufferPool.h"
#include "Platform/Media/AssetReader.h"
#include "Platform/Media/MediaError.h"
#include "Platform/Media/Private/Composing/LayerDrawing.h"
#include "Platform/Media/Private/Reading/SampleReader.h"

namespace tavrel {
namespace {

/// One track's picture at the time that the compositor has come to.
class LayerSource {
 public:
  LayerSource(std::shared_ptr<const AssetTrack> track, std::unique_ptr<SampleReader> reader)
      : track_(std::move(track)), reader_(std::move(reader)) {}

  int trackID() const { return track_->trackID(); }

  /// nullptr where the track shows nothing. Times only go up between two calls of `restart`.
  Expected<std::shared_ptr<PixelBuffer>> pictureAt(MediaTime time, const GoOn& goOn) {
    while (!hasEnded_ && (!next_ || next_->presentationTimeStamp() <= time)) {
      if (next_) current_ = std::move(next_);
      auto sample = reader_->next(goOn);
      if (!sample) return tl::unexpected(sample.error());
      next_ = std::move(*sample);
      hasEnded_ = !next_;
    }
    if (!current_ || !showsAnything(time)) return nullptr;
    return current_->imageBuffer();
  }

  Expected<void> restart(MediaTime time) {
    current_.reset();
    next_.reset();
    hasEnded_ = false;
    return reader_->seek({time, MediaTime::positiveInfinity()}, true);
  }

 private:
  bool showsAnything(MediaTime time) const {
    const MediaTimeRange& whole = track_->timeRange();
    if (whole.duration > MediaTime::zero() && time >= whole.end()) return false;
    const auto& segments = track_->segments();
    const auto at = std::find_if(segments.begin(), segments.end(),
                                 [&](const auto& segment) { return segment.target.contains(time); });
    return at == segments.end() || !at->isEmpty();
  }

  std::shared_ptr<const AssetTrack> track_;
  std::unique_ptr<SampleReader> reader_;
  std::shared_ptr<SampleBuffer> current_;
  std::shared_ptr<SampleBuffer> next_;
  bool hasEnded_ = false;
};

class CompositionReader final : public SampleReader {
 public:
  CompositionReader(std::vector<LayerSource> sources, std::shared_ptr<const VideoComposition> composition,
                    std::shared_ptr<PixelBufferPool> pool, MediaTime end)
      : sources_(std::move(sources)), composition_(std::move(composition)), pool_(std::move(pool)), end_(end) {}

  Expected<std::shared_ptr<SampleBuffer>> next(const GoOn& goOn) override {
    const MediaTime time = timeOf(frame_);
    if (!goOn() || time >= end_ || time >= range_.end()) return nullptr;
    auto picture = compose(time, goOn);
    if (!picture) return tl::unexpected(picture.error());
    if (!goOn()) return nullptr;
    ++frame_;
    return SampleBuffer::createImage(std::move(*picture), {composition_->frameDuration(), time, MediaTime::invalid()});
  }

  Expected<void> seek(const MediaTimeRange& range, bool withShownAtStart) override {
    range_ = range;
    const double frames = range.start.seconds() / composition_->frameDuration().seconds();
    frame_ = static_cast<std::int64_t>(withShownAtStart ? std::floor(frames + 1e-9) : std::ceil(frames - 1e-9));
    for (LayerSource& source : sources_) {
      if (auto sought = source.restart(timeOf(frame_)); !sought) return sought;
    }
    return {};
  }

 private:
  MediaTime timeOf(std::int64_t frame) const {
    const MediaTime step = composition_->frameDuration();
    return MediaTime::make(frame * step.value, step.timescale);
  }

  const VideoCompositionInstruction* instructionAt(MediaTime time) const {
    const auto& all = composition_->instructions();
    const auto found =
        std::find_if(all.begin(), all.end(), [&](const auto& each) { return each.timeRange.contains(time); });
    return found == all.end() ? nullptr : &*found;
  }

  Expected<std::shared_ptr<PixelBuffer>> compose(MediaTime time, const GoOn& goOn) {
    auto target = pool_->createPixelBuffer();
    if (!target) return target;
    const VideoCompositionInstruction* const instruction = instructionAt(time);
    (*target)->lockBaseAddress(PixelBufferLock::readWrite);
    fillWithColor(**target, instruction ? instruction->backgroundColor : VideoCompositionInstruction::Color{});
    auto drawn = instruction ? drawLayers(**target, *instruction, time, goOn) : Expected<void>{};
    (*target)->unlockBaseAddress(PixelBufferLock::readWrite);
    if (!drawn) return tl::unexpected(drawn.error());
    return target;
  }

  Expected<void> drawLayers(PixelBuffer& target, const VideoCompositionInstruction& instruction, MediaTime time,
                            const GoOn& goOn) {
    const auto& layers = instruction.layerInstructions;
    for (auto layer = layers.rbegin(); layer != layers.rend(); ++layer) {
      const auto source = std::find_if(sources_.begin(), sources_.end(),
                                       [&](const LayerSource& each) { return each.trackID() == layer->trackID(); });
      if (source == sources_.end()) continue;
      auto picture = source->pictureAt(time, goOn);
      if (!picture) return tl::unexpected(picture.error());
      if (!*picture) continue;
      const double scale = composition_->renderScale();
      const AffineTransform transform =
          layer->transformAt(time).concatenating(AffineTransform::makeScale(scale, scale));
      (*picture)->lockBaseAddress(PixelBufferLock::readOnly);
      drawLayer(target, **picture, transform, layer->opacityAt(time));
      (*picture)->unlockBaseAddress(PixelBufferLock::readOnly);
      (*picture)->copyPropagatedAttachments(target);
    }
    return {};
  }

  std::vector<LayerSource> sources_;
  const std::shared_ptr<const VideoComposition> composition_;
  const std::shared_ptr<PixelBufferPool> pool_;
  const MediaTime end_;
  MediaTimeRange range_ = MediaTimeRange::everything();
  std::int64_t frame_ = 0;
};

}  // namespace

AssetReaderVideoCompositionOutput::AssetReaderVideoCompositionOutput(
    std::vector<std::shared_ptr<const AssetTrack>> videoTracks)
    : tracks_(std::move(videoTracks)) {
  if (tracks_.empty()) fatalAssertion("An asset reader output needs a track");
}

Expected<std::unique_ptr<SampleReader>> AssetReaderVideoCompositionOutput::open(const AssetReader& reader) {
  if (!videoComposition_) videoComposition_ = MutableVideoComposition::createWithPropertiesOfAsset(*reader.asset());
  const double scale = videoComposition_->renderScale();
  const Size size = videoComposition_->renderSize();
  if (!(size.width * scale >= 1 && size.height * scale >= 1) || !videoComposition_->frameDuration().isNumeric() ||
      !(videoComposition_->frameDuration() > MediaTime::zero())) {
    return failure(MediaErrorCode::invalidSettings,
                   "a video composition needs a render size and a frame duration above 0");
  }
  auto pool = PixelBufferPool::create(static_cast<std::size_t>(std::lround(size.width * scale)),
                                      static_cast<std::size_t>(std::lround(size.height * scale)), PixelFormat::bgra32);
  if (!pool) return tl::unexpected(pool.error());
  SampleForm form;
  form.isRandomAccess = supportsRandomAccess();
  MediaTime end = MediaTime::zero();
  std::vector<LayerSource> sources;
  for (const auto& track : tracks_) {
    auto opened = openTrack(*track, form, reader.asset()->path());
    if (!opened) return tl::unexpected(opened.error());
    sources.emplace_back(track, std::move(*opened));
    end = std::max(end, track->timeRange().end());
  }
  return std::make_unique<CompositionReader>(std::move(sources), videoComposition_, std::move(*pool), end);
}

}  // namespace tavrel
