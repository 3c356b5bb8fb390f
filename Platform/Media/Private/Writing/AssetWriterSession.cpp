#include "Platform/Media/Private/Writing/AssetWriterSession.h"

#include <fmt/format.h>

#include <algorithm>
#include <utility>

#include "Platform/Foundation/ProcessEnd.h"
#include "Platform/Media/MediaError.h"

namespace tavrel {
namespace {

constexpr std::chrono::milliseconds kTick{100};
// An input that is asked for data waits for one that is asked too when it is so many seconds ahead, and for each second
// in which the other has given nothing may be two more ahead: nothing waits for ever.
constexpr double kMostAhead = 0.5;
constexpr double kMoreAhead = 2;

}  // namespace

AssetWriterSession::AssetWriterSession(std::unique_ptr<MovieFile> file)
    : file_(std::move(file)), control_(DispatchQueue::create("tavrel.writer")) {
  settings_.fragmentInterval = MediaTime::make(1, 1);
  settings_.indexRoom = MediaTime::make(600, 1);
}

AssetWriterStatus AssetWriterSession::status() const {
  const std::lock_guard lock(mutex_);
  return status_;
}

std::optional<Error> AssetWriterSession::error() const {
  const std::lock_guard lock(mutex_);
  return error_;
}

void AssetWriterSession::setSettings(const std::function<void(MovieFile::Settings&)>& change) {
  const std::lock_guard lock(mutex_);
  if (status_ == AssetWriterStatus::unknown) change(settings_);
}

MovieFile::Settings AssetWriterSession::settings() const {
  const std::lock_guard lock(mutex_);
  return settings_;
}

bool AssetWriterSession::refuse(Error error) {
  if (status_ == AssetWriterStatus::unknown) error_ = std::move(error);
  return false;
}

bool AssetWriterSession::add(const std::shared_ptr<InputPipeline>& input) {
  const std::lock_guard lock(mutex_);
  if (status_ != AssetWriterStatus::unknown) return false;
  if (auto attached = input->attach(*file_); !attached) return refuse(attached.error());
  inputs_.push_back(input);
  return true;
}

bool AssetWriterSession::start() {
  std::unique_lock lock(mutex_);
  if (status_ != AssetWriterStatus::unknown || isEnding_) return false;
  status_ = AssetWriterStatus::writing;
  // Why an input was refused says more than that there is none.
  std::optional<Error> error = std::exchange(error_, std::nullopt);
  if (!inputs_.empty()) {
    error.reset();
  } else if (!error) {
    error = makeError(MediaErrorCode::nothingAdded, "the movie has no tracks: add an input first");
  }
  const auto handler = [weak = weak_from_this()](Error failure) {
    if (const auto self = weak.lock()) self->fail(std::move(failure));
  };
  packets_ = std::make_shared<PacketQueue>(file_, PacketQueue::Handlers{handler, [weak = weak_from_this()] {
                                                                          const auto self = weak.lock();
                                                                          if (self) self->checkReadiness();
                                                                        }});
  // Encoders first: an existing file is replaced only when there is something to write.
  for (const auto& input : inputs_) {
    if (error) break;
    const auto balance = [weak = weak_from_this()] {
      if (const auto self = weak.lock()) self->balanceInputs();
    };
    if (auto opened = input->open(packets_, handler, balance); !opened) error = opened.error();
  }
  if (!error) {
    if (auto begun = file_->begin(settings_); !begun) error = begun.error();
  }
  if (error) {
    beginEnding(lock, Ending::fail, std::move(error));
    return false;
  }
  timer_ = std::make_unique<DispatchTimer>(control_, kTick, [weak = weak_from_this()] {
    if (const auto self = weak.lock()) self->tick();
  });
  return true;
}

void AssetWriterSession::startSession(MediaTime time) {
  const std::lock_guard lock(mutex_);
  if (status_ != AssetWriterStatus::writing || hasSession_ || !time.isNumeric()) return;
  hasSession_ = true;
  for (const auto& input : inputs_) input->startSession(time);
}

void AssetWriterSession::tick() {
  {
    const std::lock_guard lock(mutex_);
    if (isEnding_) return;
    packets_->tick();
  }
  balanceInputs();
}

void AssetWriterSession::balanceInputs() {
  std::vector<std::shared_ptr<InputPipeline>> inputs;
  {
    const std::lock_guard lock(mutex_);
    inputs = inputs_;
  }
  const auto now = std::chrono::steady_clock::now();
  for (const auto& input : inputs) {
    const auto own = input->progress();
    const bool isHeldBack =
        own.isPulled && !own.isRealTime && std::any_of(inputs.begin(), inputs.end(), [&](const auto& candidate) {
          if (candidate == input) return false;
          const auto other = candidate->progress();
          const double silence = std::chrono::duration<double>(now - other.lastAppend).count();
          const double ahead = own.appendedUntil - other.appendedUntil;
          return other.isFeeding && other.isPulled && ahead > kMostAhead + kMoreAhead * silence;
        });
    input->setHeldBack(isHeldBack);
  }
}

void AssetWriterSession::checkReadiness() {
  const auto inputs = [this] {
    const std::lock_guard lock(mutex_);
    return inputs_;
  }();
  for (const auto& input : inputs) input->checkReadiness();
}

void AssetWriterSession::fail(Error error) {
  std::unique_lock lock(mutex_);
  if (!isEnding_) return beginEnding(lock, Ending::fail, std::move(error));
  // An encoder may fail over what it still holds.
  if (status_ == AssetWriterStatus::writing && !error_) error_ = std::move(error);
}

void AssetWriterSession::beginEnding(std::unique_lock<std::mutex>& lock, Ending ending, std::optional<Error> error) {
  isEnding_ = true;
  if (ending == Ending::fail) {
    status_ = AssetWriterStatus::failed;
    error_ = std::move(error);
  }
  if (ending == Ending::cancel) status_ = AssetWriterStatus::cancelled;
  const auto inputs = inputs_;
  if (ending == Ending::cancel) packets_->discard();
  lock.unlock();
  for (const auto& input : inputs) input->end(ending == Ending::cancel);
  control_->async([self = shared_from_this(), ending] { self->end(ending); });
}

void AssetWriterSession::end(Ending ending) {
  const auto timer = [this] {
    const std::lock_guard lock(mutex_);
    return std::move(timer_);
  }();
  for (const auto& input : inputs_) input->drain();
  packets_->drain();

  std::optional<Error> error = status() == AssetWriterStatus::writing ? this->error() : std::nullopt;
  if (error) ending = Ending::fail;
  if (ending == Ending::cancel) {
    file_->remove();
  } else if (ending == Ending::fail && (settings_.appearsWhenComplete || !file_->hasSamples())) {
    file_->abandon();
  } else if (auto finished = file_->finish(); !finished) {
    file_->abandon();
    error = finished.error();
  }

  const std::lock_guard lock(mutex_);
  if (status_ == AssetWriterStatus::writing) {
    status_ = error ? AssetWriterStatus::failed : AssetWriterStatus::completed;
    error_ = std::move(error);
  }
  inputs_.clear();
  packets_.reset();
  hasEnded_ = true;
  ended_.notify_all();
}

void AssetWriterSession::finish(std::function<void()> completion) {
  {
    std::unique_lock lock(mutex_);
    if (status_ == AssetWriterStatus::writing && !isEnding_) beginEnding(lock, Ending::finish, std::nullopt);
  }
  // Behind the ending, so that the status is final.
  if (completion) control_->async(std::move(completion));
}

void AssetWriterSession::waitUntilEnded() {
  if (control_->isCurrent() || ProcessEnd::isOnEndingThread()) return;
  std::unique_lock lock(mutex_);
  if (isEnding_) ended_.wait(lock, [this] { return hasEnded_; });
}

bool AssetWriterSession::finishAndWait() {
  finish(nullptr);
  waitUntilEnded();
  return status() == AssetWriterStatus::completed;
}

void AssetWriterSession::cancel() {
  {
    std::unique_lock lock(mutex_);
    if (status_ == AssetWriterStatus::unknown) {
      status_ = AssetWriterStatus::cancelled;
      return;
    }
    if (status_ == AssetWriterStatus::writing && !isEnding_) beginEnding(lock, Ending::cancel, std::nullopt);
  }
  waitUntilEnded();
}

void AssetWriterSession::close() {
  if (ProcessEnd::isOnEndingThread()) {
    // Its queues have ended: the file stays as it is, like that of a process that was killed, and what threads may
    // still be using stays too.
    static auto* const abandoned = new std::vector<std::shared_ptr<AssetWriterSession>>;
    abandoned->push_back(shared_from_this());
    return;
  }
  finishAndWait();
  // The control thread may still be about to let go of this object: it ends here, not some time later on itself.
  if (!control_->isCurrent()) control_->shutDown();
}

}  // namespace tavrel
