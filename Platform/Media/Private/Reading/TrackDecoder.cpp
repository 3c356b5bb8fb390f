#include "Platform/Media/Private/Reading/TrackDecoder.h"

#include <algorithm>
#include <cmath>
#include <thread>
#include <utility>

#include "Platform/Media/Private/FFmpegError.h"
#include "Platform/Media/Private/Reading/MovieInput.h"

namespace tavrel {
namespace {

/// Frames above this many pixels come from damaged headers; 8K has half as many.
constexpr std::int64_t kMostPixels = std::int64_t{8192} * 8192;
constexpr unsigned kMostThreads = 8;

Error damaged(const std::filesystem::path& path, int result) {
  return unreadableMovie(path, ffmpegErrorText(result), mediaErrorCode(result, MediaErrorCode::damagedFile));
}

}  // namespace

Expected<std::unique_ptr<TrackDecoder>> TrackDecoder::open(const std::filesystem::path& path, int trackID,
                                                           const Options& options) {
  std::unique_ptr<TrackDecoder> decoder(new TrackDecoder);
  decoder->options_ = options;
  decoder->path_ = path;
  if (auto opened = decoder->openFile(trackID); !opened) return tl::unexpected(opened.error());
  // A palette may come in front of all, and never again.
  decoder->canSeek_ = decoder->packets_->canSeek() && decoder->parameters().format != AV_PIX_FMT_PAL8;
  if (auto opened = decoder->openCodec(path, decoder->findCodec()); !opened) return tl::unexpected(opened.error());
  return decoder;
}

Expected<void> TrackDecoder::openFile(int trackID) {
  auto packets = PacketReader::open(path_, trackID, options_.access);
  if (!packets) return tl::unexpected(packets.error());
  packets_.emplace(std::move(*packets));
  return {};
}

const AVCodec* TrackDecoder::findCodec() const {
  const AVCodecID id = parameters().codec_id;
  const AVCodec* withAlpha = nullptr;
  if (options_.alpha == Alpha::kept && av_dict_get(packets_->stream().metadata, "alpha_mode", nullptr, 0)) {
    if (id == AV_CODEC_ID_VP8) withAlpha = avcodec_find_decoder_by_name("libvpx");
    if (id == AV_CODEC_ID_VP9) withAlpha = avcodec_find_decoder_by_name("libvpx-vp9");
  }
  return withAlpha ? withAlpha : avcodec_find_decoder(id);
}

Expected<void> TrackDecoder::openCodec(const std::filesystem::path& path, const AVCodec* codec) {
  codec_.reset(avcodec_alloc_context3(codec));
  packet_.reset(av_packet_alloc());
  frame_.reset(av_frame_alloc());
  if (!codec_ || !packet_ || !frame_) {
    return tl::unexpected(unreadableMovie(path, "no memory left", MediaErrorCode::allocationFailed));
  }
  int result = avcodec_parameters_to_context(codec_.get(), &parameters());
  if (result >= 0) {
    codec_->pkt_timebase = timeBase();
    codec_->max_pixels = kMostPixels;
    codec_->thread_count = static_cast<int>(std::clamp(std::thread::hardware_concurrency(), 1U, kMostThreads));
    result = avcodec_open2(codec_.get(), codec, nullptr);
  }
  if (result < 0) return tl::unexpected(damaged(path, result));

  const AVRational rate = av_guess_frame_rate(&packets_->file(), &packets_->stream(), nullptr);
  if (parameters().codec_type == AVMEDIA_TYPE_VIDEO && rate.num > 0 && rate.den > 0) {
    frameDuration_ = av_rescale_q(1, av_inv_q(rate), timeBase());
  }
  return {};
}

AVRational TrackDecoder::constantRate() const {
  const AVRational mean = packets_->stream().avg_frame_rate;
  const AVRational finest = packets_->stream().r_frame_rate;
  if (mean.num <= 0 || mean.den <= 0 || finest.num <= 0 || finest.den <= 0) return {0, 1};
  constexpr double kTolerance = 1e-4;
  return std::abs(av_q2d(mean) / av_q2d(finest) - 1) < kTolerance ? finest : AVRational{0, 1};
}

Expected<const AVFrame*> TrackDecoder::next(const std::function<bool()>& goOn) {
  while (goOn()) {
    auto whole = nextOfFields();
    if (!whole || *whole) return whole;
    if (atEnd_) break;
    if (!receive()) {
      if (!atEnd_) feed();
      if (atEnd_ && deinterlacer_) static_cast<void>(deinterlacer_->add(nullptr));
    } else if (place()) {
      hasDecoded_ = true;
      const bool isWhole = options_.fields == Fields::kept || !frame_->interlaced_frame;
      if (!deinterlacer_ && isWhole) return frame_.get();
      if (auto added = deinterlace(); !added) return tl::unexpected(added.error());
    }
  }
  if (atEnd_ && !hasDecoded_ && damage_) return tl::unexpected(*damage_);
  return nullptr;
}

Expected<void> TrackDecoder::deinterlace() {
  if (deinterlacer_ && !deinterlacer_->fits(*frame_)) {
    // Pictures of another kind follow when those that the filter holds have come.
    following_.reset(av_frame_clone(frame_.get()));
    return deinterlacer_->add(nullptr);
  }
  if (!deinterlacer_) {
    auto made = FrameFilter::create("bwdif=mode=send_frame:parity=auto:deint=interlaced", *frame_, timeBase());
    if (!made) return tl::unexpected(made.error());
    deinterlacer_ = std::move(*made);
  }
  return deinterlacer_->add(frame_.get());
}

Expected<const AVFrame*> TrackDecoder::nextOfFields() {
  if (!deinterlacer_) return nullptr;
  auto whole = deinterlacer_->next();
  if (!whole || *whole || !following_) return whole;
  deinterlacer_.reset();
  frame_ = std::move(following_);
  if (auto added = deinterlace(); !added) return tl::unexpected(added.error());
  if (atEnd_) static_cast<void>(deinterlacer_->add(nullptr));
  return deinterlacer_->next();
}

Expected<void> TrackDecoder::seek(std::int64_t time) {
  if (!canSeek_ || !packets_->seek(time)) return rewind();
  startOver();
  awaitsFirstPacket_ = parameters().codec_type == AVMEDIA_TYPE_VIDEO;
  return {};
}

Expected<void> TrackDecoder::rewind() {
  // Opened anew: not every container finds back to its start by seeking.
  if (auto opened = openFile(packets_->stream().index); !opened) return opened;
  startOver();
  return {};
}

void TrackDecoder::startOver() {
  avcodec_flush_buffers(codec_.get());
  deinterlacer_.reset();
  following_.reset();
  completeFrom_.reset();
  awaitsFirstPacket_ = false;
  lastTime_.reset();
  flushing_ = false;
  errorsOfFlush_ = 0;
  atEnd_ = false;
}

bool TrackDecoder::receive() {
  const int result = avcodec_receive_frame(codec_.get(), frame_.get());
  if (result >= 0) return true;
  if (result == AVERROR_EOF) {
    atEnd_ = true;
  } else if (result != AVERROR(EAGAIN)) {
    noteDamage(result);
  }
  return false;
}

void TrackDecoder::feed() {
  if (flushing_) {
    // Behind the errors of a damaged end there are pictures still, but a decoder that cannot be emptied any more would
    // answer them for ever.
    atEnd_ = ++errorsOfFlush_ > kMostThreads * 2;
    return;
  }
  const PacketReader::Step step = packets_->read(*packet_);
  canSeek_ = canSeek_ && packets_->canSeek();
  if (step == PacketReader::Step::end) {
    if (packets_->error() != AVERROR_EOF) noteDamage(packets_->error());
    flushing_ = true;
    avcodec_send_packet(codec_.get(), nullptr);
    return;
  }
  if (step == PacketReader::Step::packet) {
    if (packet_->pts == AV_NOPTS_VALUE) canSeek_ = false;
    if (awaitsFirstPacket_) {
      if (isSane(packet_->pts)) completeFrom_ = packet_->pts;
      awaitsFirstPacket_ = false;
    }
    const int sent = avcodec_send_packet(codec_.get(), packet_.get());
    if (sent < 0) noteDamage(sent);
  }
  av_packet_unref(packet_.get());
}

/// Puts the frame on the time line; false when it lies outside.
bool TrackDecoder::place() {
  std::int64_t time = frame_->best_effort_timestamp;
  const std::int64_t length = isSane(frame_->pkt_duration) ? std::max<std::int64_t>(0, frame_->pkt_duration) : 0;
  frame_->pkt_duration = length > 0 ? length : frameDuration_;
  if (time == AV_NOPTS_VALUE || !isSane(time)) {
    time = lastTime_ ? *lastTime_ + std::max<std::int64_t>(1, frameDuration_) : 0;
  }
  const bool isVideo = parameters().codec_type == AVMEDIA_TYPE_VIDEO;
  if (isVideo && (time < 0 || (completeFrom_ && time < *completeFrom_))) return false;
  if (isVideo && lastTime_ && time <= *lastTime_) time = *lastTime_ + 1;
  if (parameters().codec_id == AV_CODEC_ID_VORBIS) time = evenTime(time);
  lastTime_ = time;
  frame_->pts = time;
  if (isVideo) describe();
  return true;
}

/// Where windows of Vorbis change their length, FFmpeg's demuxer of Ogg says of a packet that it begins elsewhere.
std::int64_t TrackDecoder::evenTime(std::int64_t time) {
  constexpr int kMostDoubts = 2;
  constexpr AVRational kLongestDoubt{1, 20};
  const std::int64_t expected = std::exchange(expectedTime_, AV_NOPTS_VALUE);
  const std::int64_t deviation = lastTime_ && expected != AV_NOPTS_VALUE ? std::abs(time - expected) : 0;
  const bool isDoubtful = deviation > 2 && deviation < av_rescale_q(1, kLongestDoubt, timeBase());
  doubts_ = isDoubtful ? doubts_ + 1 : 0;
  if (isDoubtful && doubts_ <= kMostDoubts) time = expected;
  if (frame_->sample_rate > 0)
    expectedTime_ = time + av_rescale_q(frame_->nb_samples, {1, frame_->sample_rate}, timeBase());
  return time;
}

void TrackDecoder::describe() {
  AVStream& stream = packets_->stream();
  frame_->sample_aspect_ratio = av_guess_sample_aspect_ratio(&packets_->file(), &stream, frame_.get());
  constexpr std::pair<AVPacketSideDataType, AVFrameSideDataType> kBrightness[] = {
      {AV_PKT_DATA_MASTERING_DISPLAY_METADATA, AV_FRAME_DATA_MASTERING_DISPLAY_METADATA},
      {AV_PKT_DATA_CONTENT_LIGHT_LEVEL, AV_FRAME_DATA_CONTENT_LIGHT_LEVEL}};
  for (const auto& [ofFile, ofFrame] : kBrightness) {
    std::size_t size = 0;
    const std::uint8_t* const said = av_stream_get_side_data(&stream, ofFile, &size);
    if (!said || av_frame_get_side_data(frame_.get(), ofFrame)) continue;
    if (AVFrameSideData* const added = av_frame_new_side_data(frame_.get(), ofFrame, size))
      std::copy(said, said + size, added->data);
  }
}

void TrackDecoder::noteDamage(int code) {
  if (!damage_) damage_ = damaged(path_, code);
}

}  // namespace tavrel
