#include "Platform/Media/Private/Writing/InputPipeline.h"

#include <fmt/format.h>

#include <algorithm>
#include <cmath>

#include "Platform/Dispatch/RunLoop.h"
#include "Platform/Graphics/PixelBuffer.h"
#include "Platform/Media/MediaError.h"
#include "Platform/Media/Private/FFmpegTime.h"
#include "Platform/Media/Private/Writing/PassthroughTrackEncoder.h"
#include "Platform/Media/Private/Writing/TrackEncoderChoice.h"
#include "Platform/Media/Private/Writing/VideoSettings.h"
#include "Platform/Tracing/TraceNames.h"
#include "Platform/Tracing/TraceSpan.h"

namespace tavrel {
namespace {

constexpr int kMostWaitingPictures = 4;

/// How much sound may wait for the encoder.
struct Backlog {
  double seconds;
  int pieces;
};
constexpr Backlog kSoundBacklog = {1, 256};
// After a picture that has held up the writer, live sound comes in a burst. It is small, and cannot be had again.
constexpr Backlog kLiveSoundBacklog = {10, 4096};

constexpr std::int32_t kFinestTimescale = 1'000'000;
constexpr std::int32_t kCoarsestTimescale = 600;
// A longer silence between two pieces of sound is a wrong time, not a pause.
constexpr double kLongestSilence = 3600;
// What an audio decoder needs before its first sample, at most.
constexpr double kLongestPriming = 0.1;
// From a keyframe to the first picture that is shown, at most.
constexpr double kLongestLeadIn = 60;
constexpr double kLatestTime = 1e9;

std::int32_t automaticTimescale(std::int32_t timescale) {
  if (timescale > kFinestTimescale) return kFinestTimescale;
  const std::int32_t factor = (kCoarsestTimescale + timescale - 1) / timescale;
  return timescale * factor;
}

}  // namespace

InputPipeline::~InputPipeline() = default;

InputPipeline::Configuration InputPipeline::configuration() const {
  const std::lock_guard lock(mutex_);
  return configuration_;
}

void InputPipeline::configure(const std::function<void(Configuration&)>& change) {
  const std::lock_guard lock(mutex_);
  if (stage_ == Stage::created || stage_ == Stage::attached) change(configuration_);
}

Size InputPipeline::encodedSize() const {
  const std::lock_guard lock(mutex_);
  if (stage_ != Stage::created || mediaType_ != MediaType::video || !settings_) return encodedSize_;
  const auto parsed = VideoSettings::parse(*settings_);
  return parsed ? Size{static_cast<double>(parsed->width), static_cast<double>(parsed->height)} : Size{};
}

bool InputPipeline::hasStarted() const {
  const std::lock_guard lock(mutex_);
  return stage_ != Stage::created && stage_ != Stage::attached;
}

Expected<void> InputPipeline::attach(const MovieFile& file) {
  const std::lock_guard lock(mutex_);
  if (stage_ != Stage::created) return failure(MediaErrorCode::inputInUse, "the input serves a writer already");
  auto choice = chooseTrackEncoder(mediaType_, settings_, configuration_.timescale, formatHint_);
  if (!choice) return tl::unexpected(choice.error());
  if (auto checked = choice->encoder->check(file); !checked) return checked;
  encodedSize_ = choice->size;
  stage_ = Stage::attached;
  return {};
}

Expected<void> InputPipeline::open(std::shared_ptr<PacketQueue> output, FailureHandler failureHandler,
                                   AppendHandler appendHandler) {
  std::unique_lock lock(mutex_);
  auto choice = chooseTrackEncoder(mediaType_, settings_, configuration_.timescale, formatHint_);
  if (!choice) return tl::unexpected(choice.error());
  encoder_ = std::move(choice->encoder);
  failureHandler_ = std::move(failureHandler);
  appendHandler_ = std::make_shared<const AppendHandler>(std::move(appendHandler));
  lastAppend_ = std::chrono::steady_clock::now();
  timescale_ = configuration_.timescale;
  const int track = output->file().addTrack(mediaType_, {configuration_.transform, configuration_.languageCode},
                                            configuration_.isRealTime);
  output_ = {std::move(output), track};
  if (auto opened = encoder_->open(output_, configuration_.isRealTime); !opened) return opened;
  constexpr const char* kQueues[] = {"tavrel.writer.video", "tavrel.writer.audio", "tavrel.writer.subtitle"};
  queue_ = DispatchQueue::create(kQueues[static_cast<int>(mediaType_)]);
  stage_ = Stage::writing;
  readinessChanged(lock);
  return {};
}

void InputPipeline::startSession(MediaTime time) {
  const std::lock_guard lock(mutex_);
  if (!sessionStart_) sessionStart_ = time;
}

void InputPipeline::checkReadiness() {
  std::unique_lock lock(mutex_);
  readinessChanged(lock);
}

void InputPipeline::setHeldBack(bool isHeldBack) {
  std::unique_lock lock(mutex_);
  if (isHeldBack_ == isHeldBack) return;
  isHeldBack_ = isHeldBack;
  readinessChanged(lock);
}

InputPipeline::Progress InputPipeline::progress() const {
  const std::lock_guard lock(mutex_);
  return {stage_ == Stage::writing, requestBlock_ != nullptr, configuration_.isRealTime, appendedUntil_, lastAppend_};
}

bool InputPipeline::isReadyLocked() const {
  if (stage_ != Stage::writing || isHeldBack_ || !output_.queue->hasRoom(mediaType_)) return false;
  if (mediaType_ == MediaType::video) return waitingSamples_ < kMostWaitingPictures;
  const Backlog& most = configuration_.isRealTime ? kLiveSoundBacklog : kSoundBacklog;
  return waitingSeconds_ < most.seconds && waitingSamples_ < most.pieces;
}

bool InputPipeline::isReady() const {
  const std::lock_guard lock(mutex_);
  return isReadyLocked();
}

bool InputPipeline::append(const SampleBuffer& sampleBuffer) {
  if (!isReady() || sampleBuffer.format()->mediaType != mediaType_) return false;
  const MediaTime time = sampleBuffer.presentationTimeStamp();
  if (const auto image = sampleBuffer.imageBuffer()) return appendPicture(*image, time);
  TrackSample sample;
  sample.format = sampleBuffer.format();
  sample.sound = sampleBuffer.audioBufferList();
  sample.packet = sampleBuffer.packetData();
  if (!sample.sound && !sample.packet) return false;
  if (sample.packet && settings_ && mediaType_ == MediaType::video) return false;
  sample.isKeyframe = sampleBuffer.isKeyframe();
  sample.frameCount = sampleBuffer.numSamples();
  sample.duration = sampleBuffer.duration();
  sample.decodeTime = sampleBuffer.timingEntries().front().decodeTimeStamp;
  const bool isStoredAsItIs = !settings_ && mediaType_ != MediaType::subtitle;
  if (isStoredAsItIs && !isStorable(*sample.format)) return refuse(*sample.format);
  return enqueue(std::move(sample), time);
}

bool InputPipeline::appendPicture(PixelBuffer& pixelBuffer, MediaTime presentationTime) {
  if (!settings_ || mediaType_ != MediaType::video || !isReady()) return false;
  TrackSample sample;
  sample.picture = pixelBuffer.snapshot();
  return sample.picture && enqueue(std::move(sample), presentationTime);
}

bool InputPipeline::isStorable(const FormatDescription& format) const {
  std::unique_lock lock(mutex_);
  const TrackOutput output = output_;
  lock.unlock();
  const AVCodecID codec = PassthroughTrackEncoder::codecOf(format);
  return output.queue && output.queue->file().container().canStore(codec, !format.codecExtradata.empty()) &&
         output.queue->file().hasTrack(output.track);
}

bool InputPipeline::refuse(const FormatDescription& format) {
  std::unique_lock lock(mutex_);
  if (stage_ != Stage::writing || hasAppended_) return false;
  Error error = makeError(
      MediaErrorCode::unsuitableContainer,
      fmt::format("{} cannot hold {} as it is: give the input settings to encode it with",
                  output_.queue->file().container().name(), format.isCompressed() ? format.codecName : "PCM"));
  queue_->async([self = shared_from_this(), error = std::move(error)]() mutable { self->fail(std::move(error)); });
  return false;
}

bool InputPipeline::stampPicture(TrackSample& sample, MediaTime movieTime) {
  if (lastPicture_ && movieTime <= *lastPicture_) return false;
  lastPicture_ = movieTime;
  // Two times may meet in a timescale that is coarser than theirs.
  lastUnits_ = std::max(unitsOf(movieTime, {1, timescale_}), lastUnits_ + 1);
  sample.timeUnits = lastUnits_;
  appendedUntil_ = movieTime.seconds();
  return true;
}

bool InputPipeline::stampSound(const TrackSample& sample, MediaTime movieTime) {
  const double seconds = movieTime.seconds();
  if (mediaType_ == MediaType::audio && seconds > appendedUntil_ + kLongestSilence) return false;
  appendedUntil_ = std::max(appendedUntil_, seconds + (sample.duration.isNumeric() ? sample.duration.seconds() : 0));
  return true;
}

bool InputPipeline::enqueue(TrackSample sample, MediaTime presentationTime) {
  std::unique_lock lock(mutex_);
  if (!isReadyLocked() || !sessionStart_ || !presentationTime.isNumeric()) return false;
  const MediaTime movieTime = presentationTime - *sessionStart_;
  if (!movieTime.isNumeric() || std::abs(movieTime.seconds()) > kLatestTime) return false;
  // Sound that reaches into the session is cut by the encoder; what is stored just before it prepares the decoder.
  const double longest = mediaType_ == MediaType::audio ? kLongestPriming : kLongestLeadIn;
  const bool isLeadInTold = mediaType_ == MediaType::video && output_.queue->file().container().isQuickTimeFamily();
  const bool isTold = mediaType_ == MediaType::audio || isLeadInTold;
  const bool isCutLater = sample.sound || (sample.packet && (settings_ || (isTold && movieTime.seconds() > -longest)));
  if (movieTime < MediaTime::zero() && !isCutLater) return true;
  // The sample's own timescale, not the one that the subtraction brought in, chooses the track's.
  if (timescale_ == 0) timescale_ = automaticTimescale(presentationTime.timescale);
  sample.timescale = timescale_;
  if (sample.picture ? !stampPicture(sample, movieTime) : !stampSound(sample, movieTime)) return false;
  sample.presentationTime = movieTime;
  if (sample.decodeTime.isNumeric()) sample.decodeTime = sample.decodeTime - *sessionStart_;
  const double seconds = sample.duration.isNumeric() ? sample.duration.seconds() : 0;
  ++waitingSamples_;
  waitingSeconds_ += seconds;
  lastAppend_ = std::chrono::steady_clock::now();
  hasAppended_ = true;
  output_.queue->file().noteFirstSample();
  queue_->async(
      [self = shared_from_this(), sample = std::move(sample), seconds]() mutable { self->process(sample, seconds); });
  const auto handler = requestBlock_ && !configuration_.isRealTime ? appendHandler_ : nullptr;
  lock.unlock();
  if (handler) (*handler)();
  return true;
}

void InputPipeline::process(const TrackSample& sample, double seconds) {
  if (!isDiscarding_ && !hasFailed_) {
    const TraceNames& names = TraceNames::shared();
    const TraceSpan span(mediaType_ == MediaType::video ? names.videoEncoder : names.audioEncoder);
    if (auto encoded = encoder_->encode(sample); !encoded) fail(encoded.error());
  }
  std::unique_lock lock(mutex_);
  --waitingSamples_;
  waitingSeconds_ = waitingSamples_ == 0 ? 0 : waitingSeconds_ - seconds;
  readinessChanged(lock);
}

void InputPipeline::fail(Error error) {
  hasFailed_ = true;
  if (failureHandler_) failureHandler_(std::move(error));
}

void InputPipeline::finishEncoder() {
  if (!isDiscarding_ && !hasFailed_) {
    if (auto finished = encoder_->finish(); !finished) fail(finished.error());
  }
  output_.queue->endTrack(output_.track);
}

void InputPipeline::markAsFinished() {
  std::unique_lock lock(mutex_);
  if (stage_ != Stage::writing) return;
  stage_ = Stage::finished;
  queue_->async([self = shared_from_this()] { self->finishEncoder(); });
  readinessChanged(lock);
}

void InputPipeline::end(bool discard) {
  if (discard) isDiscarding_ = true;
  markAsFinished();
  std::unique_lock lock(mutex_);
  if (discard && encoder_) encoder_->stop();
  stage_ = Stage::ended;
  readinessChanged(lock);
}

void InputPipeline::drain() {
  std::shared_ptr<DispatchQueue> queue;
  {
    const std::lock_guard lock(mutex_);
    queue = std::move(queue_);
  }
  if (!queue) return;
  queue->sync([this] {
    encoder_.reset();
    failureHandler_ = nullptr;
  });
  const std::lock_guard lock(mutex_);
  output_ = {};
}

void InputPipeline::readinessChanged(std::unique_lock<std::mutex>& lock) {
  changed_.notify_all();
  if (isMainWaiting_ && (isReadyLocked() || hasEndedLocked())) {
    isMainWaiting_ = false;
    DispatchQueue::main()->async([] {});  // its run loop looks again
  }
  if (hasEndedLocked()) {
    // The block is let go of outside the lock: it may hold the last reference to anything.
    const auto block = std::move(requestBlock_);
    const auto queue = std::move(requestQueue_);
    lock.unlock();
    return;
  }
  if (!requestBlock_ || isRequestPosted_ || !isReadyLocked()) return;
  isRequestPosted_ = true;
  requestQueue_->async([weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->callRequest();
  });
}

void InputPipeline::callRequest() {
  std::shared_ptr<std::function<void()>> block;
  {
    const std::lock_guard lock(mutex_);
    if (isReadyLocked()) block = requestBlock_;
  }
  if (block) (*block)();
  std::unique_lock lock(mutex_);
  isRequestPosted_ = false;
  readinessChanged(lock);
}

void InputPipeline::requestMediaData(std::shared_ptr<DispatchQueue> queue, std::function<void()> block) {
  if (!queue || !block) return;
  std::unique_lock lock(mutex_);
  if (hasEndedLocked()) return;
  requestQueue_ = std::move(queue);
  requestBlock_ = std::make_shared<std::function<void()>>(std::move(block));
  readinessChanged(lock);
}

bool InputPipeline::waitUntilReady(std::chrono::nanoseconds timeout) {
  const auto isDecided = [this] { return isReadyLocked() || hasEndedLocked(); };
  if (RunLoop::isMainThread()) {
    RunLoop::main().runUntil(
        [&] {
          const std::lock_guard lock(mutex_);
          isMainWaiting_ = !isDecided();
          return !isMainWaiting_;
        },
        timeout);
    return isReady();
  }
  std::unique_lock lock(mutex_);
  changed_.wait_for(lock, timeout, isDecided);
  return isReadyLocked();
}

}  // namespace tavrel
