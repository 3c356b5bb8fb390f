#include "Platform/Media/Private/Writing/MovieFile.h"

#include <algorithm>
#include <cmath>
#include <limits>

extern "C" {
#include <libavutil/opt.h>
}

#include "Platform/Media/Private/FFmpegError.h"
#include "Platform/Media/Private/FFmpegLog.h"

namespace tavrel {
namespace {

// A process that is killed 0.3 s after the first sample leaves a file that opens.
constexpr std::chrono::milliseconds kHeaderPatience{150};
// Those of a track without a format are waited for no longer then.
constexpr std::int64_t kMostWaitingBytes = std::int64_t{32} << 20;
// Beyond it a sample's duration no longer fits the container; such a pause is told by the next fragment's time instead.
constexpr std::int64_t kLongestDuration = std::numeric_limits<std::int32_t>::max() / 2;

// What a second of pictures and of sound takes in an index at most, at 30 pictures a second, and what comes besides.
constexpr std::int64_t kPictureIndexRate = 600;
constexpr std::int64_t kSoundIndexRate = 200;
constexpr std::int64_t kIndexHeadSize = 4096;

double secondsOf(std::int64_t units, AVRational base) { return static_cast<double>(units) * av_q2d(base); }

std::int64_t nominalDuration(MediaType mediaType, AVRational base) {
  return std::max<std::int64_t>(1, av_rescale_q(1, AVRational{1, mediaType == MediaType::video ? 30 : 50}, base));
}

}  // namespace

Expected<std::unique_ptr<MovieFile>> MovieFile::open(const std::filesystem::path& path, std::string_view fileType) {
  quietFFmpegLog();
  const auto container = MovieContainer::find(fileType);
  if (!container) return tl::unexpected(container.error());
  auto output = MovieFileOutput::open(path);
  if (!output) return tl::unexpected(output.error());
  return std::unique_ptr<MovieFile>(new MovieFile(std::move(*output), *container));
}

MovieFile::MovieFile(std::unique_ptr<MovieFileOutput> output, MovieContainer container)
    : output_(std::move(output)), container_(container) {}

MovieFile::~MovieFile() { abandon(); }

int MovieFile::addTrack(MediaType mediaType, const AffineTransform& transform,
                        std::chrono::milliseconds formatPatience) {
  Track track{};
  track.mediaType = mediaType;
  track.transform = transform;
  track.formatPatience = std::max(formatPatience, kHeaderPatience);
  tracks_.push_back(std::move(track));
  return static_cast<int>(tracks_.size()) - 1;
}

Expected<void> MovieFile::begin(Settings settings) {
  settings_ = std::move(settings);
  settings_.metadata = container_.metadata(std::move(settings_.metadata));
  lastFlush_ = Clock::now();
  hasBegun_ = true;
  if (auto begun = output_->begin(); !begun) return fail(begun.error());
  return {};
}

Expected<void> MovieFile::fail(Error error) {
  if (!error_) error_ = std::move(error);
  return tl::unexpected(*error_);
}

Expected<void> MovieFile::checked(int result, const char* what) {
  // The system's reason says more than the muxer's, and the muxer does not always pass it on.
  if (auto status = output_->status(); !status) return fail(status.error());
  if (result >= 0) return {};
  return fail(loggedFFmpegError(MediaErrorCode::writingFailed, result, what));
}

Expected<void> MovieFile::checkpoint() {
  if (auto complete = output_->checkpoint(); !complete) return fail(complete.error());
  return {};
}

bool MovieFile::setFormat(int index, const AVCodecParameters* parameters, AVRational timeBase, bool isFinal) {
  const std::lock_guard lock(mutex_);
  if (areFormatsFixed_) return false;
  Track& track = tracks_[static_cast<std::size_t>(index)];
  track.parameters.reset(avcodec_parameters_alloc());
  avcodec_parameters_copy(track.parameters.get(), parameters);
  track.timeBase = timeBase;
  track.isFormatFinal = isFinal;
  return true;
}

bool MovieFile::hasTrack(int track) const {
  const std::lock_guard lock(mutex_);
  return !areFormatsFixed_ || tracks_[static_cast<std::size_t>(track)].parameters;
}

void MovieFile::noteFirstSample() {
  const std::lock_guard lock(mutex_);
  if (!firstSample_) firstSample_ = Clock::now();
}

bool MovieFile::fixFormatsWhenDue() {
  const auto now = Clock::now();
  const std::lock_guard lock(mutex_);
  bool hasAny = false;
  for (const Track& track : tracks_) {
    hasAny = hasAny || track.parameters;
    if (track.isFormatFinal || track.hasEnded) continue;
    const auto patience = track.parameters ? kHeaderPatience : track.formatPatience;
    const bool isOver = firstSample_ && (now - *firstSample_ >= patience || waitingBytes_ > kMostWaitingBytes);
    if (!isOver) return false;
  }
  areFormatsFixed_ = hasAny;
  return hasAny;
}

Expected<void> MovieFile::createStreams(AVFormatContext& context) {
  for (Track& track : tracks_) {
    if (!track.parameters) continue;
    const AVStream* const stream = container_.addStream(context, *track.parameters, track.timeBase, track.transform);
    if (!stream) return checked(AVERROR(ENOMEM), "the movie's header cannot be made");
    track.stream = stream->index;
  }
  for (const MetadataItem& item : settings_.metadata) {
    av_dict_set(&context.metadata, item.key.c_str(), item.value.c_str(), 0);
  }
  return {};
}

int MovieFile::videoTimescale() const {
  int timescale = 0;
  for (const Track& track : tracks_) {
    if (track.stream >= 0 && track.mediaType == MediaType::video) timescale = track.timeBase.den;
  }
  return timescale;
}

Expected<void> MovieFile::beginIndex() {
  index_.emplace(container_);
  if (!index_->context()) return checked(AVERROR(ENOMEM), "the movie's index cannot be made");
  if (auto created = createStreams(*index_->context()); !created) return created;
  index_->begin(container_.indexOptions(settings_.metadata, videoTimescale()));
  std::int64_t bytesPerSecond = 0;
  for (const Track& track : tracks_) {
    if (track.stream >= 0) bytesPerSecond += track.mediaType == MediaType::video ? kPictureIndexRate : kSoundIndexRate;
  }
  const double seconds = settings_.indexRoom.isNumeric() ? std::clamp(settings_.indexRoom.seconds(), 0.0, 1e6) : 0;
  const auto room = seconds > 0 ? kIndexHeadSize + std::llround(seconds * static_cast<double>(bytesPerSecond)) : 0;
  avio_flush(output_->context());
  if (auto status = output_->status(); !status) return fail(status.error());
  auto regular = RegularMovie::reserve(*output_, room);
  if (!regular) return fail(regular.error());
  regular_ = *regular;
  return {};
}

Expected<void> MovieFile::writeHeader() {
  if (const int result = container_.open(output_->context(), context_); result < 0) {
    return checked(result, "the movie's header cannot be made");
  }
  if (auto created = createStreams(*context_); !created) return created;
  AVDictionary* options = container_.muxerOptions(fragmentSeconds(), settings_.metadata, videoTimescale()).release();
  const int result = avformat_write_header(context_.get(), &options);
  av_dict_free(&options);
  if (auto written = checked(result, "the movie's header cannot be written"); !written) return written;
  if (container_.isQuickTimeFamily() && !settings_.staysFragmented) {
    if (auto begun = beginIndex(); !begun) return begun;
  }
  isHeaderWritten_ = true;
  if (auto complete = checkpoint(); !complete) return complete;

  auto waiting = std::move(waiting_);
  waiting_.clear();
  for (auto& [index, packet] : waiting) {
    Track& track = tracks_[static_cast<std::size_t>(index)];
    if (auto muxed = mux(track, std::move(packet)); !muxed) return muxed;
  }
  return {};
}

double MovieFile::fragmentSeconds() const {
  const double seconds = settings_.fragmentInterval.isNumeric() ? settings_.fragmentInterval.seconds() : 1;
  return std::clamp(seconds, 0.1, 10.0);
}

Expected<void> MovieFile::flushFragment() {
  if (!hasUnflushed_) return {};
  const std::int64_t start = output_->position();
  const int result = av_write_frame(context_.get(), nullptr);
  if (auto flushed = checked(result, "a fragment of the movie cannot be written"); !flushed) return flushed;
  // Fragments start at their first sample's own time, whatever durations the one before announced.
  if (container_.isQuickTimeFamily()) av_opt_set(context_->priv_data, "movflags", "+frag_discont", 0);
  setInterleaving(false);
  if (auto complete = checkpoint(); !complete) return complete;
  if (index_) {
    const auto description = output_->boxAt(start);
    if (!description) return fail(description.error());
    index_->place(*description, start);
  }
  if (auto safe = settings_.appearsWhenComplete ? output_->sync() : output_->publish(); !safe)
    return fail(safe.error());
  hasUnflushed_ = false;
  hasFragments_ = true;
  lastFlush_ = Clock::now();
  const std::lock_guard lock(mutex_);
  for (Track& track : tracks_) {
    if (!track.queuedEnd) continue;
    track.writtenEnd = *track.queuedEnd;
    track.writtenSamples = track.queuedSamples;
    track.isInFile = true;
    fragmentStart_ = std::max(fragmentStart_, track.writtenEnd);
  }
  return {};
}

Expected<void> MovieFile::mux(Track& track, Packet packet) {
  if (track.stream < 0) return {};
  if (isPriming(track, *packet)) return muxPriming(track, std::move(packet));
  const double start = secondsOf(packet->dts, track.timeBase);
  if (start - fragmentStart_ >= fragmentSeconds()) {
    if (auto flushed = flushFragment(); !flushed) return flushed;
    fragmentStart_ = std::max(fragmentStart_, start);
  }
  if (track.queuedEnd && packet->dts - track.lastDts > kLongestDuration) skipTo(track, packet->dts - 1);
  track.lastDts = packet->dts;
  track.queuedEnd = secondsOf(packet->pts + packet->duration, track.timeBase);
  packet->stream_index = track.stream;
  av_packet_rescale_ts(packet.get(), track.timeBase, context_->streams[track.stream]->time_base);
  hasUnflushed_ = true;
  ++track.queuedSamples;
  if (track.stream == 0) setInterleaving(true);
  if (index_) index_->add(*packet);
  const int result = av_write_frame(context_.get(), packet.get());
  if (auto written = checked(result, "a packet cannot be written to the movie"); !written) return written;
  return isFirstFragmentDue(track) ? flushFragment() : Expected<void>{};
}

void MovieFile::setInterleaving(bool isOn) {
  // A player should not have to load all of a fragment's pictures before its first sound. FFmpeg 5.1 misplaces the
  // samples of an interleaved fragment without any of the first stream.
  constexpr int kSamples = 4;
  if (container_.isQuickTimeFamily()) av_opt_set_int(context_->priv_data, "frag_interleave", isOn ? kSamples : 0, 0);
}

bool MovieFile::isPriming(const Track& track, const AVPacket& packet) {
  return track.mediaType == MediaType::audio && packet.pts < 0;
}

Expected<void> MovieFile::muxPriming(const Track& track, Packet packet) {
  // In fragments many readers would play everything later by as much. Without it the first 20 ms fade in.
  if (!index_) return {};
  packet->stream_index = track.stream;
  av_packet_rescale_ts(packet.get(), track.timeBase, context_->streams[track.stream]->time_base);
  AVIOContext* const output = output_->context();
  avio_wb32(output, static_cast<unsigned>(packet->size) + 8);
  avio_write(output, reinterpret_cast<const unsigned char*>("mdat"), 4);
  const std::int64_t start = output_->position();
  avio_write(output, packet->data, packet->size);
  index_->addPlaced(*packet, start);
  return {};
}

bool MovieFile::isFirstFragmentDue(const Track& track) const {
  // Some readers do not open a movie without a sample: the first picture makes a fragment of its own.
  if (hasFragments_) return false;
  return track.mediaType == MediaType::video || std::none_of(tracks_.begin(), tracks_.end(), [](const Track& other) {
           return other.mediaType == MediaType::video;
         });
}

void MovieFile::skipTo(const Track& track, std::int64_t dts) {
  // An empty packet is not stored; it makes the muxer notice, before it checks the next packet's time, that the
  // fragment need not follow the one before.
  const Packet empty(av_packet_alloc());
  empty->stream_index = track.stream;
  empty->dts = empty->pts = dts;
  av_packet_rescale_ts(empty.get(), track.timeBase, context_->streams[track.stream]->time_base);
  av_write_frame(context_.get(), empty.get());
}

Expected<void> MovieFile::release(Track& track, std::int64_t duration) {
  Packet packet = std::move(track.held);
  if (duration <= 0 || duration > kLongestDuration) duration = nominalDuration(track.mediaType, track.timeBase);
  packet->duration = duration;
  if (duration > 1) track.lastDuration = duration;
  if (isHeaderWritten_) return mux(track, std::move(packet));
  waitingBytes_ += packet->size;
  waiting_.emplace_back(static_cast<int>(&track - tracks_.data()), std::move(packet));
  return {};
}

Expected<void> MovieFile::releaseHeld(bool isLast) {
  for (Track& track : tracks_) {
    // What is held waits for its successor, whose time is its end: at the most a sample of each track is kept out of
    // the file. But some readers do not open a movie with a track that has none.
    if (!track.held || (!isLast && track.queuedEnd)) continue;
    // Not the last one: announce so little that the next packet, whenever it comes, comes later.
    std::int64_t duration = 1;
    if (isLast) duration = track.held->duration > 0 ? track.held->duration : track.lastDuration;
    if (auto released = release(track, duration); !released) return released;
  }
  return {};
}

Expected<void> MovieFile::write(int index, Packet packet) {
  if (error_) return tl::unexpected(*error_);
  if (isClosed_) return {};
  Track& track = tracks_[static_cast<std::size_t>(index)];
  if (track.held) {
    if (auto released = release(track, packet->dts - track.held->dts); !released) return released;
  }
  track.held = std::move(packet);
  if (!isHeaderWritten_ && fixFormatsWhenDue()) return writeHeader();
  return {};
}

void MovieFile::endTrack(int index) { tracks_[static_cast<std::size_t>(index)].hasEnded = true; }

Expected<void> MovieFile::tick() {
  if (error_) return tl::unexpected(*error_);
  if (isClosed_) return {};
  if (!isHeaderWritten_) return hasSamples() && fixFormatsWhenDue() ? writeHeader() : Expected<void>{};
  // A source that pauses, or is slow, must not keep what it gave out of the file.
  if (Clock::now() - lastFlush_ < std::chrono::duration<double>(fragmentSeconds() * 1.1)) return {};
  if (auto released = releaseHeld(false); !released) return released;
  return flushFragment();
}

Expected<void> MovieFile::complete() {
  const auto moov = index_ ? index_->finish() : std::vector<std::uint8_t>();
  if (!moov.empty()) {
    if (auto completed = regular_->complete(*output_, moov); !completed) return fail(completed.error());
    return {};
  }
  if (auto ended = checked(av_write_trailer(context_.get()), "the movie cannot be completed"); !ended) return ended;
  return checkpoint();
}

Expected<void> MovieFile::finish() {
  if (error_) return tl::unexpected(*error_);
  if (isClosed_ || !hasBegun_) return {};
  if (auto released = releaseHeld(true); !released) return released;
  for (Track& track : tracks_) track.hasEnded = true;
  if (!hasSamples()) {
    return fail(makeError(MediaErrorCode::emptyMovie, "no sample came, so there is no movie"));
  }
  if (!isHeaderWritten_ && fixFormatsWhenDue()) {
    if (auto written = writeHeader(); !written) return written;
  }
  if (auto flushed = flushFragment(); !flushed) return flushed;
  if (auto completed = complete(); !completed) return completed;
  if (auto safe = output_->sync(); !safe) return fail(safe.error());
  if (auto named = output_->publish(); !named) return fail(named.error());
  isClosed_ = true;
  context_.reset();
  output_->closeAtCheckpoint();
  return {};
}

bool MovieFile::hasSamples() const {
  return !waiting_.empty() || std::any_of(tracks_.begin(), tracks_.end(), [](const Track& track) {
    return track.held || track.queuedEnd || track.isInFile;
  });
}

void MovieFile::abandon() {
  if (isClosed_) return;
  isClosed_ = true;
  context_.reset();
  output_->closeAtCheckpoint();
}

void MovieFile::remove() {
  if (isClosed_) return;
  isClosed_ = true;
  context_.reset();
  output_->closeAndRemove();
}

MediaTime MovieFile::writtenUntil() const {
  const std::lock_guard lock(mutex_);
  std::optional<double> end;
  for (const Track& track : tracks_) {
    if (track.isInFile && (!end || track.writtenEnd < *end)) end = track.writtenEnd;
  }
  return MediaTime::fromSeconds(end.value_or(0), 1000);
}

std::uint64_t MovieFile::writtenSamples(MediaType mediaType) const {
  const std::lock_guard lock(mutex_);
  std::uint64_t samples = 0;
  for (const Track& track : tracks_) samples += track.mediaType == mediaType ? track.writtenSamples : 0;
  return samples;
}

}  // namespace tavrel
