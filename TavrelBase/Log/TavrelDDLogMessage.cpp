#include "TavrelBase/Log/TavrelDDLogMessage.h"

#include <pthread.h>
#include <unistd.h>

#include <charconv>

#include "Platform/Dispatch/DispatchQueue.h"
#include "TavrelBase/Log/Private/Concatenate.h"

namespace tavrel {
namespace {

/// What the kernel says about a thread, asked again when it is a second old. Without a destructor, so that code that
/// runs at the end of a thread may still log.
class ThreadDescription {
 public:
  static const ThreadDescription& current(TavrelDDLogMessage::Clock::time_point now) {
    ThreadDescription& description = ofThread();
    const auto age = now - description.readAt_;
    if (age < age.zero() || age > std::chrono::seconds(1)) description.read(now);
    return description;
  }

  /// In a forked child, where it has another number.
  static void forget() { ofThread().readAt_ = {}; }

  std::string_view id() const { return {id_, idLength_}; }
  std::string_view name() const { return name_; }

 private:
  static ThreadDescription& ofThread() {
    [[gnu::tls_model("initial-exec")]] static thread_local ThreadDescription description;
    return description;
  }
  void read(TavrelDDLogMessage::Clock::time_point now) {
    readAt_ = now;
    idLength_ = static_cast<std::size_t>(std::to_chars(id_, id_ + sizeof id_, gettid()).ptr - id_);
    if (pthread_getname_np(pthread_self(), name_, sizeof name_) != 0) name_[0] = 0;
  }

  TavrelDDLogMessage::Clock::time_point readAt_;
  std::size_t idLength_ = 0;
  char id_[16] = {};
  char name_[16] = {};
};

[[maybe_unused]] const int forksAreWatched = pthread_atfork(nullptr, nullptr, ThreadDescription::forget);

std::size_t lastComponentStart(std::string_view path) {
  const std::size_t slash = path.rfind('/');
  return slash == std::string_view::npos ? 0 : slash + 1;
}

}  // namespace

std::string_view TavrelDDExtractFileNameWithoutExtension(std::string_view path) {
  const std::string_view name = path.substr(lastComponentStart(path));
  const std::size_t dot = name.rfind('.');
  return dot == std::string_view::npos || dot == 0 ? name : name.substr(0, dot);
}

TavrelDDLogMessage::TavrelDDLogMessage(std::string_view message, unsigned level, unsigned flag, Index context,
                                       std::string_view file, std::string_view function, unsigned line,
                                       std::string_view tag, unsigned options)
    : TavrelDDLogMessage(message, level, flag, context, file, function, line, tag, options, Clock::now()) {}

TavrelDDLogMessage::TavrelDDLogMessage(std::string_view message, unsigned level, unsigned flag, Index context,
                                       std::string_view file, std::string_view function, unsigned line,
                                       std::string_view tag, unsigned options, Clock::time_point timestamp)
    : timestamp_(timestamp), context_(context), level_(level), flag_(flag), line_(line), options_(options) {
  const ThreadDescription& thread = ThreadDescription::current(timestamp);
  const DispatchQueue* const queue = DispatchQueue::current();
  const std::string_view queueLabel = queue ? std::string_view(queue->label()) : std::string_view();
  concatenate(texts_, message, file, function, tag, thread.id(), thread.name(), queueLabel);
  messageEnd_ = message.size();
  lastComponentStart_ = messageEnd_ + lastComponentStart(file);
  fileEnd_ = messageEnd_ + file.size();
  functionEnd_ = fileEnd_ + function.size();
  tagEnd_ = functionEnd_ + tag.size();
  threadIDEnd_ = tagEnd_ + thread.id().size();
  threadNameEnd_ = threadIDEnd_ + thread.name().size();
}

}  // namespace tavrel
