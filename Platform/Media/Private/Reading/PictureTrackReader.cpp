#include "Platform/Media/Private/Reading/PictureTrackReader.h"

#include <algorithm>
#include <cstdlib>
#include <limits>
#include <utility>

#include "Platform/Foundation/ConsoleLog.h"
#include "Platform/Media/MediaError.h"
#include "Platform/Media/Private/FFmpegTime.h"

namespace tavrel {
namespace {

/// A group of 250 pictures of 1280×720 in 4:2:0 takes 350 MB.
constexpr std::size_t kMostKeptBytes = std::size_t{512} << 20;
/// Going back, this much more is decoded at once: it pays for starting the decoder.
constexpr std::int64_t kLeadSeconds = 1;
/// Going forward, what lies in between is decoded rather than sought past.
constexpr std::int64_t kForwardSeconds = 2;
constexpr std::int64_t kOpen = std::numeric_limits<std::int64_t>::max();

std::size_t bytesOf(const AVFrame& picture) {
  std::size_t bytes = 0;
  for (const AVBufferRef* const buffer : picture.buf) bytes += buffer ? static_cast<std::size_t>(buffer->size) : 0;
  return bytes;
}

/// The first unit of `base` at or after a time.
std::int64_t unitsFrom(const MediaTime& time, AVRational base) {
  if (!time.isNumeric()) return kOpen;
  return av_rescale_q_rnd(time.value, {1, time.timescale}, base, AV_ROUND_UP);
}

std::int64_t unitsOfSeconds(std::int64_t seconds, AVRational base) { return av_rescale_q(seconds, {1, 1}, base); }

SampleTiming timingOf(const AVFrame& picture, const TrackDecoder& decoder) {
  SampleTiming timing;
  const AVRational base = decoder.timeBase();
  if (const AVRational rate = decoder.constantRate(); rate.num > 0) {
    // A container that rounds times, as Matroska does to milliseconds, means the rate's own.
    const AVRational step = av_inv_q(rate);
    const std::int64_t first = decoder.firstTime();
    const std::int64_t number = av_rescale_q(picture.pts - first, base, step);
    if (std::abs(first + av_rescale_q(number, step, base) - picture.pts) <= 1) {
      timing.presentationTimeStamp = mediaTimeFrom(number, step);
      if (first != 0) timing.presentationTimeStamp = timing.presentationTimeStamp + mediaTimeFrom(first, base);
      timing.duration = mediaTimeFrom(1, step);
      return timing;
    }
  }
  timing.presentationTimeStamp = mediaTimeFrom(picture.pts, base);
  if (picture.pkt_duration > 0) timing.duration = mediaTimeFrom(picture.pkt_duration, base);
  return timing;
}

}  // namespace

Expected<std::unique_ptr<SampleReader>> PictureTrackReader::open(const std::filesystem::path& path,
                                                                 const AssetTrack& track, const SampleForm& form) {
  using Fields = TrackDecoder::Fields;
  auto decoder =
      TrackDecoder::open(path, track.trackID(),
                         {.fields = form.keepsFields ? Fields::kept : Fields::deinterlaced, .access = track.access()});
  if (!decoder) return tl::unexpected(decoder.error());
  return std::unique_ptr<SampleReader>(new PictureTrackReader(std::move(*decoder), form));
}

PictureTrackReader::PictureTrackReader(std::unique_ptr<TrackDecoder> decoder, const SampleForm& form)
    : decoder_(std::move(decoder)),
      maker_(std::make_shared<PictureMaker>(form.pixelFormat, form.allowsPlanes)),
      isRandomAccess_(form.isRandomAccess),
      start_(0),
      end_(kOpen) {}

Expected<std::shared_ptr<SampleBuffer>> PictureTrackReader::next(const GoOn& goOn) {
  const auto picture = nextPicture(goOn);
  if (!picture) return tl::unexpected(picture.error());
  if (!*picture) return nullptr;
  return sampleOf(**picture);
}

Expected<std::shared_ptr<SampleBuffer>> PictureTrackReader::sampleOf(const AVFrame& picture) {
  SampleTiming timing = timingOf(picture, *decoder_);
  // In a damaged file two pictures may mean the same.
  if (lastTime_ && timing.presentationTimeStamp <= *lastTime_)
    timing.presentationTimeStamp = *lastTime_ + mediaTimeFrom(1, decoder_->timeBase());
  lastTime_ = timing.presentationTimeStamp;
  if (!isRandomAccess_) {
    auto buffer = maker_->make(picture);
    if (!buffer) return tl::unexpected(buffer.error());
    return SampleBuffer::createImage(std::move(*buffer), timing);
  }
  // Who only wants to know the times pays for no picture.
  const std::shared_ptr<AVFrame> shared(av_frame_clone(&picture), FFmpegDeleter<AVFrame, av_frame_free>());
  if (!shared) return failure(MediaErrorCode::allocationFailed, "there is no memory left for a picture");
  const Size size{static_cast<double>(picture.width), static_cast<double>(picture.height)};
  return SampleBuffer::createImage(
      size,
      [maker = maker_, shared]() -> std::shared_ptr<PixelBuffer> {
        auto buffer = maker->make(*shared);
        if (buffer) return std::move(*buffer);
        ConsoleLog::write("A picture of a movie is left out: {}", buffer.error().description);
        return nullptr;
      },
      timing);
}

Expected<const AVFrame*> PictureTrackReader::nextPicture(const GoOn& goOn) {
  if (pending_) {
    shownAtStart_ = std::move(pending_);
    return shownAtStart_->pts < end_ ? shownAtStart_.get() : nullptr;
  }
  while (true) {
    auto picture = nextInOrder(goOn);
    if (!picture) return picture;
    const bool isBefore = *picture && (*picture)->pts < start_;
    if (isBefore && wantsShownAtStart_) shownAtStart_.reset(av_frame_clone(*picture));
    if (isBefore) continue;
    if (wantsShownAtStart_ && shownAtStart_ && !(*picture && (*picture)->pts == start_)) {
      wantsShownAtStart_ = false;
      if (*picture) pending_.reset(av_frame_clone(*picture));
      return shownAtStart_.get();
    }
    wantsShownAtStart_ = false;
    if (*picture && (*picture)->pts >= end_) {
      // Not delivered: it is the next one of a range that begins here.
      if (cursor_ > 0) --cursor_;
      return nullptr;
    }
    return picture;
  }
}

Expected<const AVFrame*> PictureTrackReader::nextInOrder(const GoOn& goOn) {
  if (!isRandomAccess_) return decoder_->next(goOn);
  if (cursor_ == kept_.size()) {
    if (isAtEnd_) return nullptr;
    auto decoded = decoder_->next(goOn);
    if (!decoded) return decoded;
    if (!*decoded) {
      isAtEnd_ = goOn();
      return nullptr;
    }
    keep(**decoded);
  }
  return kept_[cursor_++].get();
}

void PictureTrackReader::keep(const AVFrame& picture) {
  kept_.emplace_back(av_frame_clone(&picture));
  keptBytes_ += bytesOf(picture);
  while (keptBytes_ > kMostKeptBytes && cursor_ > 1) {
    keptBytes_ -= bytesOf(*kept_.front());
    kept_.pop_front();
    --cursor_;
    beginsAtStart_ = false;
  }
}

void PictureTrackReader::forget() {
  kept_.clear();
  keptBytes_ = 0;
  cursor_ = 0;
  isAtEnd_ = false;
  pending_.reset();
  shownAtStart_.reset();
}

bool PictureTrackReader::canGoOn(std::int64_t time) const {
  if (kept_.empty()) return false;
  const std::int64_t reach = kept_.back()->pts + unitsOfSeconds(kForwardSeconds, decoder_->timeBase());
  return (beginsAtStart_ || time >= kept_.front()->pts) && (isAtEnd_ || time <= reach);
}

Expected<void> PictureTrackReader::seek(const MediaTimeRange& range, bool withShownAtStart) {
  const AVRational base = decoder_->timeBase();
  start_ = unitsFrom(range.start, base);
  end_ = unitsFrom(range.end(), base);
  wantsShownAtStart_ = withShownAtStart;
  lastTime_.reset();
  pending_.reset();
  shownAtStart_.reset();
  if (!canGoOn(start_)) return goBefore(start_);
  const auto first = std::lower_bound(kept_.begin(), kept_.end(), start_,
                                      [](const Frame& picture, std::int64_t time) { return picture->pts < time; });
  cursor_ = static_cast<std::size_t>(first - kept_.begin());
  if (withShownAtStart && cursor_ > 0) --cursor_;
  return {};
}

/// Goes to a place from which the picture that is shown at `time` will be decoded.
Expected<void> PictureTrackReader::goBefore(std::int64_t time) {
  const std::int64_t lead = isRandomAccess_ ? unitsOfSeconds(kLeadSeconds, decoder_->timeBase()) : 0;
  std::int64_t step = unitsOfSeconds(kLeadSeconds, decoder_->timeBase());
  // A container may lead to a picture that is stored before `time` but shown after it: then further back.
  for (std::int64_t target = time - lead; target > 0 && decoder_->canSeek(); target -= step, step *= 2) {
    forget();
    beginsAtStart_ = false;
    if (auto sought = decoder_->seek(target); !sought) return sought;
    const auto first = decoder_->next([] { return true; });
    if (!decoder_->canSeek()) break;
    if (!first || !*first || (*first)->pts > time) continue;
    if (isRandomAccess_) {
      keep(**first);
    } else if ((*first)->pts == time || wantsShownAtStart_) {
      // Nothing is kept on this way: the picture is decoded again.
      if (auto again = decoder_->seek(target); !again) return again;
    }
    return {};
  }
  forget();
  beginsAtStart_ = true;
  return decoder_->rewind();
}

}  // namespace tavrel
