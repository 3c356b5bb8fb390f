#include "Platform/Media/Private/Reading/MovieClock.h"

#include <algorithm>
#include <cstdlib>

#include "Platform/Media/Private/Reading/MatroskaSegments.h"
#include "Platform/Media/Private/Reading/MovieInput.h"

namespace tavrel {
namespace {

// What ffmpeg takes for a jump.
constexpr std::int64_t kFurthest = std::int64_t{10} * AV_TIME_BASE;
constexpr std::int64_t kFurthestBack = AV_TIME_BASE / 10;

}  // namespace

MovieClock::MovieClock(const AVFormatContext& file)
    : file_(file),
      mayJump_((file.iformat->flags & AVFMT_TS_DISCONT) != 0),
      joins_(laterMatroskaSegments(file)),
      correction_(-timelineOffset(file)) {
  isJoined_ = !joins_.empty();
  std::reverse(joins_.begin(), joins_.end());
}

void MovieClock::startAnew() {
  tracks_.clear();
  lastOfAll_.reset();
}

std::int64_t MovieClock::storedTime(std::int64_t time, const AVStream& stream) const {
  return time - av_rescale_q(correction_, AV_TIME_BASE_Q, stream.time_base);
}

void MovieClock::stamp(AVPacket& packet) {
  for (std::int64_t* const time : {&packet.pts, &packet.dts}) {
    if (!isSane(*time)) *time = AV_NOPTS_VALUE;
  }
  if (mayJump_) repair(packet);
  if (isJoined_) join(packet);
  const AVRational base = file_.streams[packet.stream_index]->time_base;
  const std::int64_t correction = av_rescale_q(correction_, AV_TIME_BASE_Q, base);
  if (packet.pts != AV_NOPTS_VALUE) packet.pts += correction;
  if (packet.dts != AV_NOPTS_VALUE) packet.dts += correction;
}

void MovieClock::join(const AVPacket& packet) {
  const AVRational base = file_.streams[packet.stream_index]->time_base;
  const AVMediaType type = file_.streams[packet.stream_index]->codecpar->codec_type;
  if (packet.pts == AV_NOPTS_VALUE || (type != AVMEDIA_TYPE_VIDEO && type != AVMEDIA_TYPE_AUDIO)) return;
  const std::int64_t stored = av_rescale_q(packet.pts, base, AV_TIME_BASE_Q);
  if (!joins_.empty() && packet.pos >= joins_.back()) {
    while (!joins_.empty() && packet.pos >= joins_.back()) joins_.pop_back();
    // Both begin alike, but for a part of a longer movie.
    const std::int64_t usual = timelineOffset(file_);
    correction_ = end_ - (std::abs(stored - usual) < AV_TIME_BASE ? usual : stored);
    hasJumped_ = true;
  }
  const std::int64_t length = av_rescale_q(std::max<std::int64_t>(0, packet.duration), base, AV_TIME_BASE_Q);
  end_ = std::max(end_, stored + correction_ + length);
}

void MovieClock::repair(const AVPacket& packet) {
  const AVStream& stream = *file_.streams[packet.stream_index];
  const AVMediaType type = stream.codecpar->codec_type;
  if (packet.dts == AV_NOPTS_VALUE || (type != AVMEDIA_TYPE_VIDEO && type != AVMEDIA_TYPE_AUDIO)) return;
  tracks_.resize(file_.nb_streams);  // streams of a transport stream appear as it goes on
  Track& track = tracks_[static_cast<std::size_t>(packet.stream_index)];
  std::int64_t time = av_rescale_q(packet.dts, stream.time_base, AV_TIME_BASE_Q) + correction_;
  const auto expected = track.last ? std::optional(track.expected) : lastOfAll_;
  const std::int64_t deviation = expected ? time - *expected : 0;
  const bool isBack = track.last && time + kFurthestBack < track.expected;
  if (std::abs(deviation) > kFurthest || isBack) {
    correction_ -= deviation;
    time -= deviation;
    hasJumped_ = true;
  }
  std::int64_t length = av_rescale_q(std::max<std::int64_t>(0, packet.duration), stream.time_base, AV_TIME_BASE_Q);
  if (length == 0 && stream.avg_frame_rate.num > 0) {
    length = av_rescale_q(1, av_inv_q(stream.avg_frame_rate), AV_TIME_BASE_Q);
  }
  track.last = lastOfAll_ = time;
  track.expected = time + length;
}

}  // namespace tavrel
