#include "Platform/Media/Private/Writing/MovieFile.h"

#include <fmt/format.h>

#include <algorithm>
#include <limits>
#include <tuple>

#include "Platform/Media/MediaError.h"
#include "Platform/Media/Private/FFmpegLog.h"
#include "Platform/Media/Private/Reading/MovieInput.h"

namespace tavrel {
namespace {

// A process that is killed 0.3 s after the first sample leaves a file that opens.
constexpr std::chrono::milliseconds kHeaderPatience{150};
// Those of a track without a format are waited for no longer then.
constexpr std::int64_t kMostWaitingBytes = std::int64_t{32} << 20;
// Beyond it a sample's duration no longer fits the container; such a pause is told by the next fragment's time instead.
constexpr std::int64_t kLongestDuration = std::numeric_limits<std::int32_t>::max() / 2;

// The rest of a fragment's time is for what is still on its way to the file.
constexpr double kFragmentShare = 0.6;
constexpr double kMostIndexRoom = 1e6;

std::int64_t nominalDuration(const MovieMuxer::Stream& track) {
  const AVRational usual{track.mediaType == MediaType::video ? 30 : 50, 1};
  const AVRational rate = track.frameRate.num > 0 ? track.frameRate : usual;
  return std::max<std::int64_t>(1, av_rescale_q(1, av_inv_q(rate), track.timeBase));
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
    : muxer_(std::move(output), container) {}

MovieFile::~MovieFile() { abandon(); }

int MovieFile::addTrack(MediaType mediaType, const TrackDescription& description, bool isRealTime) {
  Track track{};
  track.format.mediaType = mediaType;
  track.format.description = description;
  track.isRealTime = isRealTime;
  track.formatPatience = isRealTime ? std::chrono::seconds(1) : std::chrono::seconds(10);
  tracks_.push_back(std::move(track));
  return static_cast<int>(tracks_.size()) - 1;
}

Expected<void> MovieFile::begin(Settings settings) {
  settings_ = std::move(settings);
  lastFlush_ = Clock::now();
  hasBegun_ = true;
  return noted(muxer_.output().begin());
}

Expected<void> MovieFile::noted(Expected<void> result) {
  if (!result && !error_) error_ = result.error();
  return result;
}

bool MovieFile::setFormat(int index, const TrackFormat& format, bool isFinal) {
  const std::lock_guard lock(mutex_);
  if (areFormatsFixed_) return false;
  Track& track = tracks_[static_cast<std::size_t>(index)];
  track.format.parameters.reset(avcodec_parameters_alloc());
  avcodec_parameters_copy(track.format.parameters.get(), format.parameters);
  track.format.timeBase = format.timeBase;
  track.format.frameRate = format.frameRate;
  track.format.decodeLead = format.decodeLead;
  track.format.colorVolume = format.colorVolume;
  track.isCopied = format.isCopied;
  track.isFormatFinal = isFinal;
  return true;
}

bool MovieFile::hasTrack(int track) const {
  const std::lock_guard lock(mutex_);
  return !areFormatsFixed_ || tracks_[static_cast<std::size_t>(track)].format.parameters;
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
    hasAny = hasAny || track.format.parameters;
    if (track.isFormatFinal || track.hasEnded) continue;
    // What is known beforehand is only good enough for a recording, which must not wait for its first picture.
    const bool isGoodEnough = track.format.parameters && track.isRealTime;
    const auto patience = isGoodEnough ? kHeaderPatience : track.formatPatience;
    const bool isOver = firstSample_ && (now - *firstSample_ >= patience || waitingBytes_ > kMostWaitingBytes);
    if (!isOver) return false;
  }
  areFormatsFixed_ = hasAny;
  return hasAny;
}

Expected<void> MovieFile::writeHeader() {
  std::vector<const MovieMuxer::Stream*> streams;
  for (const bool isSubtitle : {false, true}) {
    for (Track& track : tracks_) {
      if (!track.format.parameters) track.waiting.clear();
      if (!track.format.parameters || track.isSubtitle() != isSubtitle) continue;
      track.stream = streams.size();
      streams.push_back(&track.format);
    }
  }
  const double room =
      settings_.indexRoom.isNumeric() ? std::clamp(settings_.indexRoom.seconds(), 0.0, kMostIndexRoom) : 0;
  MovieMuxer::Options options{fragmentSeconds(), settings_.staysFragmented, room, settings_.contents};
  if (auto written = noted(muxer_.writeHeader(std::move(options), streams)); !written) return written;
  isHeaderWritten_ = true;
  return writeWaiting(false);
}

double MovieFile::fragmentSeconds() const {
  const double seconds = settings_.fragmentInterval.isNumeric() ? settings_.fragmentInterval.seconds() : 1;
  return std::clamp(std::max(seconds - encoderDelay_, seconds / 2), 0.1, 10.0);
}

Expected<void> MovieFile::flushFragment() {
  if (!hasUnflushed_ || !muxer_.canFlush()) return {};
  if (auto flushed = noted(muxer_.flush()); !flushed) return flushed;
  MovieFileOutput& output = muxer_.output();
  if (auto safe = noted(settings_.appearsWhenComplete ? output.sync() : output.publish()); !safe) return safe;
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
  if (track.isSubtitle()) return noted(muxer_.write(*track.stream, std::move(packet)));
  if (MovieMuxer::isPriming(track.format.mediaType, *packet)) {
    return noted(muxer_.write(*track.stream, std::move(packet)));
  }
  const double start = track.secondsAt(packet->dts);
  if (start - fragmentStart_ >= fragmentSeconds() * kFragmentShare) {
    if (auto flushed = flushFragment(); !flushed) return flushed;
    fragmentStart_ = std::max(fragmentStart_, start);
  }
  if (track.queuedEnd && packet->dts - track.lastDts > kLongestDuration) muxer_.skipTo(*track.stream, packet->dts - 1);
  track.lastDts = packet->dts;
  track.queuedEnd = std::max(track.queuedEnd.value_or(0), track.secondsAt(packet->pts + packet->duration));
  hasUnflushed_ = true;
  ++track.queuedSamples;
  if (auto written = noted(muxer_.write(*track.stream, std::move(packet))); !written) return written;
  return isFirstFragmentDue(track) ? flushFragment() : Expected<void>{};
}

bool MovieFile::isFirstFragmentDue(const Track& track) const {
  // Some readers do not open a movie without a sample: the first picture makes a fragment of its own.
  if (hasFragments_) return false;
  const auto isVideo = [](const Track& other) { return other.format.mediaType == MediaType::video; };
  return isVideo(track) || std::none_of(tracks_.begin(), tracks_.end(), isVideo);
}

void MovieFile::release(Track& track, std::int64_t duration) {
  Packet packet = std::move(track.held);
  if (isHeaderWritten_ && !track.stream) return;
  if (!track.isSubtitle() && (duration <= 0 || duration > kLongestDuration)) {
    duration = nominalDuration(track.format);
  }
  packet->duration = duration;
  track.lastDuration = duration;
  waitingBytes_ += packet->size;
  track.waiting.push_back({std::move(packet), Clock::now()});
}

MovieFile::Track* MovieFile::nextToWrite() {
  Track* next = nullptr;
  for (Track& track : tracks_) {
    if (track.waiting.empty()) continue;
    const auto start = [](const Track& one) { return one.secondsAt(one.waiting.front().packet->dts); };
    if (!next || start(track) < start(*next)) next = &track;
  }
  return next;
}

bool MovieFile::isTurnOf(const Track& track) const {
  const Waiting& first = track.waiting.front();
  if (waitingBytes_ > kMostWaitingBytes) return true;
  // Subtitles may be known long before their time.
  if (!track.isSubtitle() && Clock::now() - first.since >= track.formatPatience / 5) return true;
  const double start = track.secondsAt(first.packet->dts);
  return std::all_of(tracks_.begin(), tracks_.end(), [&](const Track& other) {
    const bool hasLater = !other.waiting.empty() || (other.held && other.secondsAt(other.held->dts) >= start);
    return hasLater || !other.stream || other.hasEnded || other.isSubtitle();
  });
}

Expected<void> MovieFile::writeWaiting(bool all) {
  while (Track* const track = nextToWrite()) {
    if (!all && !isTurnOf(*track)) return {};
    Packet packet = std::move(track->waiting.front().packet);
    track->waiting.pop_front();
    waitingBytes_ -= packet->size;
    if (auto muxed = mux(*track, std::move(packet)); !muxed) return muxed;
  }
  return {};
}

void MovieFile::releaseHeld(bool isLast) {
  for (Track& track : tracks_) {
    // What is held waits for its successor, whose time is its end: at the most a sample of each track is kept out of
    // the file. But some readers do not open a movie with a track that has none.
    if (!track.held || (!isLast && track.queuedEnd)) continue;
    release(track, track.held->duration > 0 ? track.held->duration : track.lastDuration);
  }
}

Expected<void> MovieFile::write(int index, Packet packet) {
  if (error_) return tl::unexpected(*error_);
  if (isClosed_) return {};
  Track& track = tracks_[static_cast<std::size_t>(index)];
  if (track.held) release(track, packet->dts - track.held->dts);
  track.held = std::move(packet);
  if (track.isSubtitle()) release(track, track.held->duration);
  if (isHeaderWritten_) return writeWaiting(false);
  return fixFormatsWhenDue() ? writeHeader() : Expected<void>{};
}

void MovieFile::endTrack(int index) { tracks_[static_cast<std::size_t>(index)].hasEnded = true; }

Expected<void> MovieFile::tick() {
  if (error_) return tl::unexpected(*error_);
  if (isClosed_) return {};
  if (!isHeaderWritten_) return hasSamples() && fixFormatsWhenDue() ? writeHeader() : Expected<void>{};
  if (auto written = writeWaiting(false); !written) return written;
  // A source that pauses, or is slow, must not keep what it gave out of the file.
  if (Clock::now() - lastFlush_ < std::chrono::duration<double>(fragmentSeconds() * 1.1)) return {};
  releaseHeld(false);
  if (auto written = writeWaiting(false); !written) return written;
  return flushFragment();
}

Expected<void> MovieFile::finish() {
  if (error_) return tl::unexpected(*error_);
  if (isClosed_ || !hasBegun_) return {};
  releaseHeld(true);
  for (Track& track : tracks_) track.hasEnded = true;
  if (!hasSamples()) {
    return noted(failure(MediaErrorCode::emptyMovie, "no sample came, so there is no movie"));
  }
  if (!isHeaderWritten_ && fixFormatsWhenDue()) {
    if (auto written = writeHeader(); !written) return written;
  }
  if (auto written = writeWaiting(true); !written) return written;
  if (auto flushed = flushFragment(); !flushed) return flushed;
  if (auto finished = noted(muxer_.finish()); !finished) return finished;
  if (auto checked = noted(checkCopies()); !checked) return checked;
  if (auto safe = noted(muxer_.output().publish()); !safe) return safe;
  isClosed_ = true;
  muxer_.close();
  muxer_.output().closeAtCheckpoint();
  return {};
}

Expected<void> MovieFile::checkCopies() {
  if (std::none_of(tracks_.begin(), tracks_.end(), [](const Track& track) { return track.isCopied; })) return {};
  const auto file = openMovieInput(muxer_.output().presentPath());
  for (const auto& [type, kind, name] : {std::tuple(AVMEDIA_TYPE_VIDEO, MediaType::video, "pictures"),
                                         std::tuple(AVMEDIA_TYPE_AUDIO, MediaType::audio, "sound")}) {
    const auto written = std::count_if(tracks_.begin(), tracks_.end(), [kind = kind](const Track& track) {
      return track.format.mediaType == kind && track.queuedEnd;
    });
    std::ptrdiff_t found = 0;
    for (unsigned i = 0; file && i < (*file)->nb_streams; ++i) {
      const AVStream& stream = *(*file)->streams[i];
      found += stream.codecpar->codec_type == type && isPlayable(stream) ? 1 : 0;
    }
    if (found < written) {
      return failure(MediaErrorCode::damagedFile,
                     fmt::format("its {} cannot be read again as they were stored: encode them anew", name));
    }
  }
  return {};
}

bool MovieFile::hasSamples() const {
  return std::any_of(tracks_.begin(), tracks_.end(),
                     [](const Track& track) { return track.held || !track.waiting.empty() || track.queuedEnd; });
}

void MovieFile::abandon() {
  if (isClosed_) return;
  isClosed_ = true;
  muxer_.close();
  muxer_.output().closeAtCheckpoint();
}

void MovieFile::remove() {
  if (isClosed_) return;
  isClosed_ = true;
  muxer_.close();
  muxer_.output().closeAndRemove();
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
  for (const Track& track : tracks_) samples += track.format.mediaType == mediaType ? track.writtenSamples : 0;
  return samples;
}

}  // namespace tavrel
