#include "Platform/Media/Private/Reading/PacketReader.h"

#include "Platform/Media/Private/Reading/MovieInput.h"

namespace tavrel {

Expected<PacketReader> PacketReader::open(const std::filesystem::path& path, int trackID,
                                          const AssetTrack::Access& access) {
  auto file = openMovieInput(path, access.searchedBytes);
  if (!file) return tl::unexpected(file.error());
  const bool isThere = trackID >= 0 && static_cast<unsigned>(trackID) < (*file)->nb_streams;
  if (!isThere || !isReadable(*(*file)->streams[trackID])) {
    return tl::unexpected(unreadableMovie(path, "the track is not there any more", MediaErrorCode::noPlayableTrack));
  }
  PacketReader reader(std::move(*file), trackID, access);
  for (unsigned i = 0; i < reader.file().nb_streams && !reader.clock_.needsEveryPacket(); ++i) {
    if (static_cast<int>(i) != trackID) reader.file().streams[i]->discard = AVDISCARD_ALL;
  }
  return reader;
}

std::int64_t PacketReader::firstTime() const {
  const std::int64_t time = stream().start_time;
  if (!isSane(time)) return 0;
  return time - av_rescale_q(timelineOffset(*file_), AV_TIME_BASE_Q, stream().time_base);
}

PacketReader::Step PacketReader::read(AVPacket& packet) {
  av_packet_unref(&packet);
  error_ = av_read_frame(file_.get(), &packet);
  if (error_ < 0) return Step::end;
  clock_.stamp(packet);
  return packet.stream_index == trackID_ ? Step::packet : Step::otherTrack;
}

bool PacketReader::seek(std::int64_t time) {
  if (!canSeek()) return false;
  const std::int64_t stored = clock_.storedTime(time, stream());
  if (av_seek_frame(file_.get(), trackID_, stored, AVSEEK_FLAG_BACKWARD) < 0) return false;
  clock_.startAnew();
  return true;
}

}  // namespace tavrel
