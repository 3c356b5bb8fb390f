#include "Platform/Media/Private/Reading/StoredTrackReader.h"

#include <algorithm>

#include "Platform/Media/Private/FFmpegTime.h"
#include "Platform/Media/Private/Reading/MovieInput.h"
#include "Platform/Media/Private/StoredCoding.h"

namespace tavrel {

bool isPcm(AVCodecID codec) { return codec >= AV_CODEC_ID_FIRST_AUDIO && codec < AV_CODEC_ID_ADPCM_IMA_QT; }

std::shared_ptr<const FormatDescription> storedFormatOf(const AVStream& stream) {
  const AVCodecParameters& parameters = *stream.codecpar;
  auto format = std::make_shared<FormatDescription>();
  if (parameters.codec_type == AVMEDIA_TYPE_AUDIO) {
    format->mediaType = MediaType::audio;
    format->audioFormat.sampleRate = parameters.sample_rate;
    format->audioFormat.channelCount = static_cast<std::uint32_t>(parameters.ch_layout.nb_channels);
    if (isPcm(parameters.codec_id)) {
      const bool isShort = av_get_exact_bits_per_sample(parameters.codec_id) <= 16;
      format->audioFormat.sampleType = isShort ? AudioSampleType::int16 : AudioSampleType::float32;
      return format;
    }
  } else {
    format->mediaType = MediaType::video;
    format->videoSize = {static_cast<double>(parameters.width), static_cast<double>(parameters.height)};
  }
  format->codecName = avcodec_get_name(parameters.codec_id);
  if (parameters.extradata_size > 0) {
    format->codecExtradata.assign(parameters.extradata, parameters.extradata + parameters.extradata_size);
  }
  auto coding = std::make_shared<StoredCoding>();
  coding->parameters.reset(avcodec_parameters_alloc());
  if (coding->parameters && avcodec_parameters_copy(coding->parameters.get(), &parameters) >= 0) {
    coding->parameters->codec_tag = 0;
    if (stream.sample_aspect_ratio.num > 0) coding->parameters->sample_aspect_ratio = stream.sample_aspect_ratio;
    coding->frameRate = stream.avg_frame_rate;
    format->storedCoding = std::move(coding);
  }
  return format;
}

Expected<std::unique_ptr<SampleReader>> StoredTrackReader::open(const std::filesystem::path& path,
                                                                const AssetTrack& track) {
  auto file = openMovieTrack(path, track.trackID());
  if (!file) return tl::unexpected(file.error());
  std::unique_ptr<StoredTrackReader> reader(new StoredTrackReader);
  reader->path_ = path;
  reader->file_ = std::move(*file);
  reader->packet_.reset(av_packet_alloc());
  if (!reader->packet_)
    return tl::unexpected(unreadableMovie(path, "no memory left", MediaErrorCode::allocationFailed));
  reader->stream_ = reader->file_->streams[track.trackID()];
  reader->format_ = storedFormatOf(*reader->stream_);
  reader->offset_ = av_rescale_q(timelineOffset(*reader->file_), AV_TIME_BASE_Q, reader->stream_->time_base);
  return reader;
}

Expected<std::shared_ptr<SampleBuffer>> StoredTrackReader::next(const GoOn& goOn) {
  while (!isAtEnd_ && goOn()) {
    av_packet_unref(packet_.get());
    if (av_read_frame(file_.get(), packet_.get()) < 0) {
      isAtEnd_ = true;
    } else if (packet_->stream_index == stream_->index && packet_->size > 0) {
      auto sample = sampleOf(*packet_);
      if (!sample || *sample) return sample;
    }
  }
  return nullptr;
}

Expected<std::shared_ptr<SampleBuffer>> StoredTrackReader::sampleOf(const AVPacket& packet) const {
  const auto timeOf = [this](std::int64_t units) {
    return units == AV_NOPTS_VALUE ? MediaTime::invalid() : mediaTimeFrom(units - offset_, stream_->time_base);
  };
  SampleTiming timing;
  timing.presentationTimeStamp = timeOf(packet.pts != AV_NOPTS_VALUE ? packet.pts : packet.dts);
  timing.decodeTimeStamp = timeOf(packet.dts);
  if (packet.duration > 0) timing.duration = mediaTimeFrom(packet.duration, stream_->time_base);
  const MediaTime end =
      timing.duration.isNumeric() ? timing.presentationTimeStamp + timing.duration : timing.presentationTimeStamp;
  const bool isWhole = !(range_.start > MediaTime::zero());
  if (!timing.presentationTimeStamp.isNumeric()) return nullptr;
  if (timing.presentationTimeStamp >= range_.end() || (!isWhole && end <= range_.start)) return nullptr;
  auto sample = SampleBuffer::createPacket(format_, Data(packet.data, packet.data + packet.size), timing,
                                           (packet.flags & AV_PKT_FLAG_KEY) != 0);
  if (sample && timing.presentationTimeStamp < MediaTime::zero()) {
    (*sample)->setOutputPresentationTimeStamp(MediaTime::zero());
  }
  return sample;
}

Expected<void> StoredTrackReader::seek(const MediaTimeRange& range, bool) {
  range_ = range;
  isAtEnd_ = false;
  const std::int64_t target = unitsOf(range.start, stream_->time_base) + offset_;
  if (range.start > MediaTime::zero() &&
      av_seek_frame(file_.get(), stream_->index, target, AVSEEK_FLAG_BACKWARD) >= 0) {
    return {};
  }
  auto file = openMovieTrack(path_, stream_->index);
  if (!file) return tl::unexpected(file.error());
  const int index = stream_->index;
  file_ = std::move(*file);
  stream_ = file_->streams[index];
  return {};
}

}  // namespace tavrel
