#include "Platform/Media/Private/Reading/StoredTrackReader.h"

#include <fmt/format.h>

#include <algorithm>

#include "Platform/Media/Private/FFmpegTime.h"
#include "Platform/Media/Private/Reading/MovieInput.h"
#include "Platform/Media/Private/StoredCoding.h"

extern "C" {
#include <libavutil/intreadwrite.h>
}

namespace tavrel {

namespace {

/// The first packet after a seek in a broadcast may be the rest of one, and the next have the time of the one after it.
const MediaTime kLead = MediaTime::make(1, 2);

/// What of the end of a packet of sound is not heard, in frames.
std::int64_t framesTrimmedAtEnd(const AVPacket& packet) {
  std::size_t size = 0;
  const std::uint8_t* const trimmed = av_packet_get_side_data(&packet, AV_PKT_DATA_SKIP_SAMPLES, &size);
  return trimmed && size >= 8 ? AV_RL32(trimmed + 4) : 0;
}

}  // namespace

bool isPcm(AVCodecID codec) { return codec >= AV_CODEC_ID_FIRST_AUDIO && codec < AV_CODEC_ID_ADPCM_IMA_QT; }

std::shared_ptr<const FormatDescription> storedFormatOf(const AVStream& stream, bool varies) {
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
  } else if (parameters.codec_type == AVMEDIA_TYPE_SUBTITLE) {
    format->mediaType = MediaType::subtitle;
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
    coding->colorVolume = ColorVolume::of(stream);
    coding->varies = varies;
    format->storedCoding = std::move(coding);
  }
  return format;
}

Expected<std::unique_ptr<SampleReader>> StoredTrackReader::open(const std::filesystem::path& path,
                                                                const AssetTrack& track) {
  auto packets = PacketReader::open(path, track.trackID(), track.access());
  if (!packets) return tl::unexpected(packets.error());
  if (packets->isJoined() && packets->stream().codecpar->video_delay > 0) {
    return failure(MediaErrorCode::unsupportedFormat,
                   fmt::format("the pictures of {} cannot be stored as they are: movies are strung together in it",
                               path.string()));
  }
  std::unique_ptr<StoredTrackReader> reader(new StoredTrackReader);
  reader->path_ = path;
  reader->packets_.emplace(std::move(*packets));
  reader->packet_.reset(av_packet_alloc());
  if (!reader->packet_)
    return tl::unexpected(unreadableMovie(path, "no memory left", MediaErrorCode::allocationFailed));
  reader->format_ = track.storedFormat();
  if (!reader->format_->codecExtradata.empty() && AdtsUnwrapper::isNeededFor(reader->packets_->stream())) {
    auto unwrapper = AdtsUnwrapper::create(*reader->packets_->stream().codecpar);
    if (!unwrapper) return tl::unexpected(unwrapper.error());
    reader->unwrapper_.emplace(std::move(*unwrapper));
  }
  reader->expectCut();
  return reader;
}

bool StoredTrackReader::isBroadcast() const { return (packets_->file().iformat->flags & AVFMT_TS_DISCONT) != 0; }

void StoredTrackReader::expectCut() {
  const AVCodecParameters& parameters = *packets_->stream().codecpar;
  if (!isBroadcast() || unwrapper_ || parameters.codec_type != AVMEDIA_TYPE_AUDIO) return;
  const AVCodec* const codec = avcodec_find_decoder(parameters.codec_id);
  trial_.reset(avcodec_alloc_context3(codec));
  const bool isReady = trial_ && avcodec_parameters_to_context(trial_.get(), &parameters) >= 0;
  if (!isReady || avcodec_open2(trial_.get(), codec, nullptr) < 0) trial_.reset();
}

bool StoredTrackReader::isWhole(const AVPacket& packet) {
  if (!trial_) return true;
  if (avcodec_send_packet(trial_.get(), &packet) < 0) return false;
  const Frame frame(av_frame_alloc());
  if (frame && avcodec_receive_frame(trial_.get(), frame.get()) >= 0) trial_.reset();
  return true;
}

bool StoredTrackReader::read(const GoOn& goOn) {
  while (!isAtEnd_ && goOn()) {
    const PacketReader::Step step = packets_->read(*packet_);
    isAtEnd_ = step == PacketReader::Step::end;
    if (step != PacketReader::Step::packet) continue;
    headers_.note(*packet_, *packets_->stream().codecpar);
    if (unwrapper_ && !unwrapper_->unwrap(*packet_)) continue;
    if (packet_->size > 0 && isWhole(*packet_)) return true;
  }
  return false;
}

void StoredTrackReader::timeEarly(const GoOn& goOn) {
  constexpr std::size_t kMostReordered = 16;
  isTimed_ = true;
  while (early_.size() <= kMostReordered && read(goOn)) {
    early_.emplace_back(av_packet_clone(packet_.get()));
    if (!early_.back() || packet_->dts != AV_NOPTS_VALUE) break;
  }
  if (early_.size() < 2 || !early_.back() || early_.back()->dts == AV_NOPTS_VALUE) return;
  const AVRational rate = packets_->stream().avg_frame_rate;
  const std::int64_t usual = rate.num > 0 && rate.den > 0
                                 ? av_rescale_q(1, av_inv_q(rate), packets_->stream().time_base)
                                 : std::max<std::int64_t>(1, early_.back()->duration);
  for (std::size_t i = early_.size() - 1; i > 0; --i) {
    const std::int64_t step = early_[i - 1]->duration > 0 ? early_[i - 1]->duration : usual;
    early_[i - 1]->dts = early_[i]->dts - step;
  }
}

Expected<std::shared_ptr<SampleBuffer>> StoredTrackReader::next(const GoOn& goOn) {
  if (!isTimed_ && format_->mediaType == MediaType::video) timeEarly(goOn);
  while (!early_.empty() || read(goOn)) {
    const Packet early = early_.empty() ? Packet() : std::move(early_.front());
    if (!early_.empty()) early_.pop_front();
    auto sample = sampleOf(early ? *early : *packet_);
    if (!sample || *sample) return sample;
  }
  return nullptr;
}

Expected<std::shared_ptr<SampleBuffer>> StoredTrackReader::sampleOf(const AVPacket& packet) const {
  const AVRational base = packets_->stream().time_base;
  const auto timeOf = [base](std::int64_t units) { return mediaTimeFrom(units, base); };
  // Where nothing is stored behind later ones, or nobody says more, the times of decoding are those of showing.
  if (packet.pts == AV_NOPTS_VALUE && packets_->stream().codecpar->video_delay > 0) {
    return failure(MediaErrorCode::unsupportedFormat,
                   fmt::format("the pictures of {} cannot be stored as they are: it does not say when they are shown",
                               path_.string()));
  }
  if (headers_.varyInRate(packet.stream_index)) {
    return failure(
        MediaErrorCode::unsupportedFormat,
        fmt::format("the sound of {} cannot be stored as it is: it changes its sampling rate", path_.string()));
  }
  SampleTiming timing;
  timing.presentationTimeStamp = timeOf(packet.pts != AV_NOPTS_VALUE ? packet.pts : packet.dts);
  timing.decodeTimeStamp = timeOf(packet.dts);
  if (packet.duration > 0) timing.duration = mediaTimeFrom(packet.duration, base);
  const int rate = packets_->stream().codecpar->sample_rate;
  if (const std::int64_t trimmed = framesTrimmedAtEnd(packet); trimmed > 0 && rate > 0 && packet.duration > 0) {
    const MediaTime heard = timing.duration - mediaTimeFrom(trimmed, {1, rate});
    if (heard > MediaTime::zero()) timing.duration = heard;
  }
  const MediaTime end =
      timing.duration.isNumeric() ? timing.presentationTimeStamp + timing.duration : timing.presentationTimeStamp;
  const bool isWhole = !(range_.start > MediaTime::zero());
  if (!timing.presentationTimeStamp.isNumeric()) return nullptr;
  if (timing.presentationTimeStamp >= range_.end() || (!isWhole && end <= range_.start)) return nullptr;
  if (format_->mediaType == MediaType::subtitle) {
    constexpr int kHeaderOfText = 2;
    const bool isEmpty = format_->codecName == "mov_text" && packet.size <= kHeaderOfText;
    if (isEmpty) return nullptr;
    timing.presentationTimeStamp = std::max(timing.presentationTimeStamp, range_.start);
    if (timing.duration.isNumeric()) timing.duration = std::min(end, range_.end()) - timing.presentationTimeStamp;
    timing.decodeTimeStamp = timing.presentationTimeStamp;
  }
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
  early_.clear();
  isTimed_ = false;
  trial_.reset();
  const AVStream& stream = packets_->stream();
  const MediaTime target = isBroadcast() ? range.start - kLead : range.start;
  const bool isSought = target > MediaTime::zero() && format_->mediaType != MediaType::subtitle;
  if (isSought && packets_->seek(unitsOf(target, stream.time_base))) return {};
  auto packets = PacketReader::open(path_, stream.index, packets_->access());
  if (!packets) return tl::unexpected(packets.error());
  packets_.emplace(std::move(*packets));
  expectCut();
  return {};
}

}  // namespace tavrel
