#include "Platform/Imaging/Private/AnimationSource.h"

#include <fmt/format.h>

#include <algorithm>
#include <cstring>
#include <utility>

#include "Platform/Imaging/Private/ColorTransform.h"
#include "Platform/Imaging/Private/Decoders.h"

namespace tavrel {
namespace {

constexpr double kShortestDelay = 0.05;
constexpr double kDelayOfHurriedFrames = 0.1;

/// Of all check-points together.
constexpr std::size_t kMostBytesOfCheckPoints = std::size_t{1} << 27;
/// Between two check-points, where there is memory for more.
constexpr std::size_t kFewestFramesBetween = 4;

}  // namespace

AnimationSource::AnimationSource(std::shared_ptr<DataProvider> data, std::string name)
    : data_(std::move(data)), name_(std::move(name)) {}

Expected<void> AnimationSource::setCanvasSize(std::size_t width, std::size_t height) {
  if (auto checked = checkPictureSize(name_, width, height); !checked) return checked;
  if (width > kMostPixelsOfAnimation / height) {
    return failure(ImagingErrorCode::pictureTooLarge,
                   fmt::format("{} is too large: {}x{}, the most is {} pixels for an animation", name_, width, height,
                               kMostPixelsOfAnimation));
  }
  width_ = static_cast<int>(width);
  height_ = static_cast<int>(height);
  return {};
}

bool AnimationSource::addFrame(const AnimationFrame& frame) {
  const std::size_t canvasPixels = static_cast<std::size_t>(width_) * static_cast<std::size_t>(height_);
  const bool isWithinLimits = frame.pixels() <= kMostPixelsOfAnimation &&
                              framePixels_ + frame.pixels() <= kMostPixelsOfAnimationFrames &&
                              (frames_.size() + 1) * canvasPixels <= kMostPixelsOfAnimationPictures;
  if (!isWithinLimits) return false;
  framePixels_ += frame.pixels();
  frames_.push_back(frame);
  return true;
}

void AnimationSource::convertColors(Bitmap& straight) const {
  if (keepsColors_) return;
  constexpr auto kLayout = ColorTransform::Layout::bgra8;
  const auto transform = ColorTransform::toSRGB(metadata_.colorProfile, kLayout, kLayout);
  if (transform) transform->convert(straight.pixels.data(), straight.pixels.data(), straight.pixels.size() / 4);
}

Expected<std::shared_ptr<Image>> AnimationSource::decodedImage(std::size_t index, const ImageDecoding& decoding) {
  const bool keepsColors = decoding.keepsColors && isProfileOfRGB(metadata_.colorProfile);
  if (std::exchange(keepsColors_, keepsColors) != keepsColors) {
    canvas_.reset();
    next_.reset();
    shown_.reset();
    checkPoints_.clear();
    prepared_ = 0;
  }
  return imageAtIndex(index);
}

Expected<std::shared_ptr<Image>> AnimationSource::imageAtIndex(std::size_t index) {
  if (index >= frames_.size())
    return failure(ImagingErrorCode::noSuchPicture, fmt::format("{} has no frame {}", name_, index));
  if (!isGivenUp()) compose(index);
  if (isGivenUp()) return failure(ImagingErrorCode::givenUp, fmt::format("reading {} was given up", name_));
  if (damage_)
    return failure(ImagingErrorCode::damagedPicture,
                   fmt::format("{} is damaged in frame {}: {}", name_, index, *damage_));
  Data pixels = recycledPixels_->take(canvas_->pixels.size());
  std::memcpy(pixels.data(), canvas_->pixels.data(), pixels.size());
  const auto width = static_cast<std::size_t>(width_);
  auto image = Image::create(width, static_cast<std::size_t>(height_), 8, 32, width * 4, kBitmapPremultipliedBGRA,
                             recycledPixels_->lend(std::move(pixels)));
  return orientation_ == ImageOrientation::up ? image : image->withScaleAndOrientation(1, orientation_);
}

ImageProperties AnimationSource::properties(std::size_t index) const {
  if (index >= frames_.size()) return {};
  ImageProperties properties;
  properties.width = static_cast<std::size_t>(width_);
  properties.height = static_cast<std::size_t>(height_);
  properties.orientation = orientation_;
  properties.bitsPerComponent = bitsPerComponent_;
  if (const auto delay = frames_[index].delay) {
    properties.unclampedDelayTime = delay;
    properties.delayTime = *delay < kShortestDelay ? kDelayOfHurriedFrames : *delay;
  }
  return properties;
}

AnimationSource::Area AnimationSource::areaOf(const AnimationFrame& frame) const {
  const int right = std::min(frame.left + frame.width, width_);
  const int bottom = std::min(frame.top + frame.height, height_);
  return {frame.left, frame.top, std::max(right - frame.left, 0), std::max(bottom - frame.top, 0)};
}

bool AnimationSource::covers(const AnimationFrame& frame) const {
  const Area area = areaOf(frame);
  return area.left == 0 && area.top == 0 && area.width == width_ && area.height == height_;
}

/// True when nothing of the earlier frames can be seen in this one or in what follows it.
bool AnimationSource::startsAfresh(std::size_t index) const {
  if (index == 0) return true;
  const AnimationFrame& before = frames_[index - 1];
  if (before.disposal == AnimationFrame::Disposal::clear && covers(before)) return true;
  const AnimationFrame& frame = frames_[index];
  return frame.isOpaque && covers(frame) && frame.disposal != AnimationFrame::Disposal::restore;
}

void AnimationSource::compose(std::size_t index) {
  if (shown_ == index) return;
  do {
    walkTo(index);
    if (isGivenUp()) return;
    const AnimationFrame& frame = frames_[index];
    if (frame.disposal == AnimationFrame::Disposal::restore) save(frame);
    damage_ = drawFrame(index);
  } while (startsAgain());
  shown_ = index;
}

std::optional<std::string> AnimationSource::drawFrame(std::size_t index) {
  auto reason = draw(index, *canvas_);
  if (reason) noteHoles(index);
  return reason;
}

void AnimationSource::noteHoles(std::size_t index) { lacksOthers_ |= std::exchange(frames_[index].isOpaque, false); }

bool AnimationSource::startsAgain() {
  if (!std::exchange(lacksOthers_, false)) return false;
  next_.reset();
  return true;
}

/// Makes the canvas ready for the frame, from the nearest state of it that is known.
void AnimationSource::walkTo(std::size_t index) {
  leaveShown();
  goToNearest(index);
  const std::size_t interval = checkPointInterval();
  while (*next_ < index) {
    if (isGivenUp()) return next_.reset();
    const AnimationFrame& frame = frames_[*next_];
    // What is taken back in the end need not be drawn.
    if (frame.disposal == AnimationFrame::Disposal::keep) drawFrame(*next_);
    if (frame.disposal == AnimationFrame::Disposal::clear) clear(frame);
    if (startsAgain()) {
      goToNearest(index);
      continue;
    }
    ++*next_;
    if (*next_ % interval == 0 && !startsAfresh(*next_)) checkPoints_.try_emplace(*next_, canvas_->pixels);
  }
}

/// Does what the frame shown wants done before the next one is drawn.
void AnimationSource::leaveShown() {
  if (!shown_) return;
  const AnimationFrame& frame = frames_[*shown_];
  if (frame.disposal == AnimationFrame::Disposal::clear) clear(frame);
  if (frame.disposal == AnimationFrame::Disposal::restore) restore(frame);
  next_ = *shown_ + 1;
  shown_.reset();
}

void AnimationSource::goToNearest(std::size_t index) {
  std::size_t fresh = index;
  while (!startsAfresh(fresh)) --fresh;
  const auto after = checkPoints_.upper_bound(index);
  const auto checkPoint = after == checkPoints_.begin() ? checkPoints_.end() : std::prev(after);
  const std::size_t known = checkPoint == checkPoints_.end() ? 0 : checkPoint->first;
  if (next_ && *next_ <= index && *next_ >= std::max(fresh, known)) return;
  if (!canvas_) canvas_.emplace(width_, height_);
  next_ = std::max(fresh, known);
  if (fresh >= known) {
    std::fill(canvas_->pixels.begin(), canvas_->pixels.end(), std::uint8_t{0});
  } else {
    std::memcpy(canvas_->pixels.data(), checkPoint->second.data(), checkPoint->second.size());
  }
}

bool AnimationSource::prepareJumps() {
  const std::size_t interval = checkPointInterval();
  const auto isWanted = [&] { return !startsAfresh(prepared_) && !checkPoints_.contains(prepared_); };
  do {
    if (isGivenUp() || frames_.size() - prepared_ <= interval) return false;
    prepared_ += interval;
  } while (!isWanted());
  walkTo(prepared_);
  return true;
}

/// Wider where frames are large, so that all check-points together keep within their memory.
std::size_t AnimationSource::checkPointInterval() const {
  const std::size_t bytes = static_cast<std::size_t>(width_) * static_cast<std::size_t>(height_) * 4;
  return std::max(kFewestFramesBetween, frames_.size() * bytes / kMostBytesOfCheckPoints + 1);
}

template <typename Handler>
void AnimationSource::forRowsOf(const AnimationFrame& frame, Handler handle) {
  const Area area = areaOf(frame);
  const std::size_t size = static_cast<std::size_t>(area.width) * 4;
  for (int y = 0; size > 0 && y < area.height; ++y) {
    handle(canvas_->row(area.top + y) + static_cast<std::ptrdiff_t>(area.left) * 4, size);
  }
}

void AnimationSource::clear(const AnimationFrame& frame) {
  forRowsOf(frame, [](std::uint8_t* row, std::size_t size) { std::memset(row, 0, size); });
}

void AnimationSource::save(const AnimationFrame& frame) {
  saved_.clear();
  forRowsOf(frame, [&](const std::uint8_t* row, std::size_t size) { saved_.insert(saved_.end(), row, row + size); });
}

void AnimationSource::restore(const AnimationFrame& frame) {
  const std::uint8_t* saved = saved_.data();
  forRowsOf(frame, [&](std::uint8_t* row, std::size_t size) {
    std::memcpy(row, saved, size);
    saved += size;
  });
}

void AnimationSource::lay(Bitmap& straight, const AnimationFrame& frame, bool over, Bitmap& canvas) const {
  multiplyByAlpha(straight.pixels);
  layOnto(canvas, straight, frame.left, frame.top, over);
}

}  // namespace tavrel
