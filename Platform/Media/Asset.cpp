#include "Platform/Media/Asset.h"

#include <algorithm>
#include <iterator>

#include "Platform/Media/Private/FFmpegTime.h"
#include "Platform/Media/Private/MovieInput.h"

extern "C" {
#include <libavutil/display.h>
}

namespace tavrel {
namespace {

AffineTransform transformOf(const AVStream& stream) {
  std::size_t size = 0;
  const std::uint8_t* data = av_stream_get_side_data(&stream, AV_PKT_DATA_DISPLAYMATRIX, &size);
  if (!data || size < sizeof(std::int32_t) * 9) return {};
  const auto* matrix = static_cast<const std::int32_t*>(static_cast<const void*>(data));
  const auto element = [matrix](int i) { return matrix[i] / 65536.0; };
  return {element(0), element(1), element(3), element(4), element(6), element(7)};
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

std::shared_ptr<const AssetTrack> trackOf(AVFormatContext& file, AVStream& stream) {
  const AVCodecParameters& parameters = *stream.codecpar;
  AssetTrack::Properties track;
  track.trackID = stream.index;
  track.codecName = avcodec_get_name(parameters.codec_id);
  track.timeRange = timeRangeOf(file, stream);
  if (parameters.codec_type == AVMEDIA_TYPE_AUDIO) {
    track.mediaType = MediaType::audio;
    track.sampleRate = parameters.sample_rate;
    track.channelCount = parameters.ch_layout.nb_channels;
    track.naturalTimescale = parameters.sample_rate;
    return std::make_shared<AssetTrack>(std::move(track));
  }
  track.mediaType = MediaType::video;
  track.naturalTimescale = stream.time_base.den;
  track.naturalSize = {static_cast<double>(parameters.width), static_cast<double>(parameters.height)};
  track.preferredTransform = transformOf(stream);
  const AVRational rate = stream.avg_frame_rate.num > 0 && stream.avg_frame_rate.den > 0
                              ? stream.avg_frame_rate
                              : av_guess_frame_rate(&file, &stream, nullptr);
  track.nominalFrameRate = rate.den > 0 ? av_q2d(rate) : 0;
  return std::make_shared<AssetTrack>(std::move(track));
}

}  // namespace

Expected<std::shared_ptr<Asset>> Asset::create(const std::filesystem::path& path) {
  auto file = openMovieInput(path);
  if (!file) return tl::unexpected(file.error());
  std::vector<std::shared_ptr<const AssetTrack>> tracks;
  MediaTime end = MediaTime::zero();
  for (unsigned i = 0; i < (*file)->nb_streams; ++i) {
    AVStream& stream = *(*file)->streams[i];
    if (!isPlayable(stream)) continue;
    tracks.push_back(trackOf(**file, stream));
    end = std::max(end, tracks.back()->timeRange().end());
  }
  if (tracks.empty()) {
    return tl::unexpected(
        unreadableMovie(path, "it holds neither pictures nor sound that can be decoded", AVERROR_STREAM_NOT_FOUND));
  }
  return std::shared_ptr<Asset>(new Asset(path, std::move(tracks), end));
}

Asset::Asset(std::filesystem::path path, std::vector<std::shared_ptr<const AssetTrack>> tracks, MediaTime duration)
    : path_(std::move(path)), tracks_(std::move(tracks)), duration_(duration) {}

std::vector<std::shared_ptr<const AssetTrack>> Asset::tracksWithMediaType(MediaType mediaType) const {
  std::vector<std::shared_ptr<const AssetTrack>> found;
  std::copy_if(tracks_.begin(), tracks_.end(), std::back_inserter(found),
               [mediaType](const auto& track) { return track->mediaType() == mediaType; });
  return found;
}

}  // namespace tavrel
