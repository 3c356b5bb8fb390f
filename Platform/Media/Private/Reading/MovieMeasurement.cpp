#include "Platform/Media/Private/Reading/MovieMeasurement.h"

#include <algorithm>

#include "Platform/Media/Private/FFmpegTime.h"
#include "Platform/Media/Private/Reading/MovieClock.h"
#include "Platform/Media/Private/Reading/MovieInput.h"

namespace tavrel {
namespace {

// What is read in search of tracks is held in memory, by the reader of each track.
constexpr std::int64_t kFarthestSearch = std::int64_t{64} << 20;
/// From a track's first packet to what tells how to decode it: as much as is usual at the start of a file.
constexpr std::int64_t kHeaderSearch = 5'000'000;

std::set<int> readableTracksOf(const AVFormatContext& file) {
  std::set<int> tracks;
  for (unsigned i = 0; i < file.nb_streams; ++i) {
    if (isReadable(*file.streams[i])) tracks.insert(static_cast<int>(i));
  }
  return tracks;
}

}  // namespace

MovieMeasurement MovieMeasurement::of(AVFormatContext& file) {
  MovieClock clock(file);
  const bool isTold = file.duration != AV_NOPTS_VALUE && file.duration_estimation_method != AVFMT_DURATION_FROM_BITRATE;
  if (isTold && !clock.needsEveryPacket()) return {};
  MovieMeasurement measured;
  std::vector<std::int64_t>& ends = measured.lengths;
  std::set<int> known = readableTracksOf(file);
  const Packet packet(av_packet_alloc());
  while (packet && av_read_frame(&file, packet.get()) >= 0) {
    const AVStream& stream = *file.streams[packet->stream_index];
    measured.headers.note(*packet, *stream.codecpar);
    if ((isMedia(stream) || isSubtitle(stream)) && known.insert(stream.index).second) {
      const std::int64_t place = avio_tell(file.pb);
      if (place > kFarthestSearch) {
        measured.farTracks.insert(stream.index);
      } else {
        measured.access.searchedBytes = place + kHeaderSearch;
      }
    }
    clock.stamp(*packet);
    const std::int64_t time = packet->pts != AV_NOPTS_VALUE ? packet->pts : packet->dts;
    ends.resize(file.nb_streams, AV_NOPTS_VALUE);  // tracks of a broadcast appear as it goes on
    std::int64_t& end = ends[static_cast<std::size_t>(stream.index)];
    // In a raw stream pictures follow each other.
    const bool isRaw = time == AV_NOPTS_VALUE && packet->duration > 0;
    const std::int64_t begin = isRaw ? std::max<std::int64_t>(0, end) : time;
    if (begin != AV_NOPTS_VALUE) end = std::max(end, begin + std::max<std::int64_t>(0, packet->duration));
    av_packet_unref(packet.get());
  }
  ends.resize(file.nb_streams, AV_NOPTS_VALUE);
  for (std::size_t i = 0; i < ends.size(); ++i) {
    const MediaTime start = timeRangeOf(file, *file.streams[i]).start;
    if (ends[i] != AV_NOPTS_VALUE && start.isNumeric())
      ends[i] = std::max<std::int64_t>(0, ends[i] - unitsOf(start, file.streams[i]->time_base));
  }
  measured.access.canSeek = !clock.hasJumped();
  return measured;
}

MediaTimeRange timeRangeOf(const AVFormatContext& file, const AVStream& stream) {
  const AVRational base = stream.time_base;
  const std::int64_t offset = av_rescale_q(timelineOffset(file), AV_TIME_BASE_Q, base);
  const std::int64_t start =
      stream.start_time == AV_NOPTS_VALUE ? 0 : std::max<std::int64_t>(0, stream.start_time - offset);
  std::int64_t duration = stream.duration;
  if (duration == AV_NOPTS_VALUE && file.duration != AV_NOPTS_VALUE) {
    duration = av_rescale_q(file.duration, AV_TIME_BASE_Q, base) - start;
  }
  const auto time = [base](std::int64_t units) { return mediaTimeFrom(units, base); };
  return {time(start), time(duration == AV_NOPTS_VALUE ? 0 : std::max<std::int64_t>(0, duration))};
}

}  // namespace tavrel
