#include "Platform/Capture/Virtual/Private/SceneMovie.h"

#include <fmt/format.h>
#include <libyuv.h>

#include <algorithm>
#include <cmath>
#include <numbers>
#include <utility>

#include "Platform/Capture/CaptureError.h"
#include "Platform/Graphics/PixelBuffer.h"
#include "Platform/Media/SampleBuffer.h"

namespace tavrel {
namespace {

/// How stored pictures become upright: mirrored first, where needed, then turned clockwise.
struct Orientation {
  bool isMirrored;
  int quarterTurns;

  explicit Orientation(const AffineTransform& transform)
      : isMirrored(transform.a * transform.d - transform.b * transform.c < 0) {
    const double sign = isMirrored ? -1 : 1;
    const double turns = std::atan2(sign * transform.b, sign * transform.a) * 2 / std::numbers::pi;
    quarterTurns = static_cast<int>(std::lround(turns) + 4) % 4;
  }
};

double startOf(const SampleBuffer& sample) { return sample.presentationTimeStamp().seconds(); }

}  // namespace

Expected<std::unique_ptr<SceneMovie>> SceneMovie::open(std::shared_ptr<const Asset> asset) {
  const auto tracks = asset->tracksWithMediaType(MediaType::video);
  if (tracks.empty())
    return failure(CaptureErrorCode::badScene, fmt::format("{} has no pictures", asset->path().string()));
  std::unique_ptr<SceneMovie> movie(new SceneMovie);
  movie->asset_ = std::move(asset);
  movie->track_ = tracks.front();
  if (auto started = movie->rewind(0); !started) return tl::unexpected(started.error());
  movie->turnUpright();
  return movie;
}

Expected<bool> SceneMovie::seek(double time) {
  bool changed = false;
  if (time < lastSought_) {
    if (auto started = rewind(0); !started) return tl::unexpected(started.error());
    changed = true;
  }
  lastSought_ = time;
  while (true) {
    if (next_ && startOf(*next_) <= time - passStart_) {
      current_ = std::exchange(next_, output_->copyNextSampleBuffer());
    } else if (!next_ && currentEnd() > 0 && time - passStart_ >= currentEnd()) {
      // Whole runs are skipped at once.
      const double runs = std::floor((time - passStart_) / currentEnd());
      if (auto started = rewind(passStart_ + runs * currentEnd()); !started) return tl::unexpected(started.error());
    } else {
      break;
    }
    changed = true;
  }
  if (changed) turnUpright();
  return changed;
}

Expected<void> SceneMovie::rewind(double passStart) {
  passStart_ = passStart;
  auto reader = AssetReader::create(asset_);
  if (!reader) return tl::unexpected(reader.error());
  reader_ = std::move(*reader);
  output_ = std::make_shared<AssetReaderTrackOutput>(track_);
  reader_->addOutput(output_);
  if (!reader_->startReading()) return tl::unexpected(*reader_->error());
  auto first = output_->copyNextSampleBuffer();
  if (!first) {
    if (const auto reason = reader_->error()) return tl::unexpected(*reason);
    return failure(CaptureErrorCode::badScene,
                   fmt::format("{} has no picture that can be decoded", asset_->path().string()));
  }
  current_ = std::move(first);
  next_ = output_->copyNextSampleBuffer();
  return {};
}

/// When the picture ends, seconds into the run; 0 when that is unknown, and then it stays for ever.
double SceneMovie::currentEnd() const {
  const MediaTime duration = current_->duration();
  if (duration.isNumeric() && duration.value > 0) return startOf(*current_) + duration.seconds();
  return track_->timeRange().end().seconds();
}

void SceneMovie::turnUpright() {
  const auto buffer = current_->imageBuffer();
  buffer->lockBaseAddress(PixelBufferLock::readOnly);
  // Nobody writes to a decoded picture, so its bytes stay where they are as long as it is held.
  BgraCanvas stored{buffer->baseAddress(), buffer->bytesPerRow(), static_cast<int>(buffer->width()),
                    static_cast<int>(buffer->height())};
  buffer->unlockBaseAddress(PixelBufferLock::readOnly);
  const Orientation orientation(track_->preferredTransform());
  if (orientation.isMirrored) {
    mirrored_.resize(stored.width, stored.height);
    const BgraCanvas mirrored = mirrored_.canvas();
    libyuv::ARGBMirror(stored.bytes, static_cast<int>(stored.bytesPerRow), mirrored.bytes,
                       static_cast<int>(mirrored.bytesPerRow), stored.width, stored.height);
    stored = mirrored;
  }
  shown_ = stored;
  if (orientation.quarterTurns == 0) return;
  const bool swapsSides = orientation.quarterTurns % 2 != 0;
  upright_.resize(swapsSides ? stored.height : stored.width, swapsSides ? stored.width : stored.height);
  shown_ = upright_.canvas();
  libyuv::ARGBRotate(stored.bytes, static_cast<int>(stored.bytesPerRow), shown_.bytes,
                     static_cast<int>(shown_.bytesPerRow), stored.width, stored.height,
                     static_cast<libyuv::RotationMode>(orientation.quarterTurns * 90));
}

}  // namespace tavrel
