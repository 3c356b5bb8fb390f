#include "Platform/Tracing/Private/TraceFile.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <pthread.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <iterator>
#include <system_error>
#include <utility>

#include "Platform/Foundation/JSONString.h"

namespace tavrel {
namespace {

/// How long events may stay in memory: what a killed process loses.
constexpr std::chrono::milliseconds kInterval(20);

const char* categoryOf(TraceEvent::Kind kind) {
  switch (kind) {
    case TraceEvent::Kind::span: return "node";
    case TraceEvent::Kind::wait: return "queue";
    case TraceEvent::Kind::drop: return "drop";
    default: return "counter";
  }
}

}  // namespace

Expected<std::unique_ptr<TraceFile>> TraceFile::create(const std::filesystem::path& path, RingVisitor forEachRing) {
  const int file = open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (file < 0) {
    const int error = errno;
    return failure("posix", error,
                   fmt::format("cannot write the trace {}: {}", path.string(), std::generic_category().message(error)));
  }
  return std::unique_ptr<TraceFile>(new TraceFile(path, file, std::move(forEachRing)));
}

TraceFile::TraceFile(std::filesystem::path path, int file, RingVisitor forEachRing)
    : path_(std::move(path)),
      file_(file),
      forEachRing_(std::move(forEachRing)),
      start_(Tracer::now()),
      process_(getpid()) {
  text_.push_back('[');
  thread_ = std::thread([this] { work(); });
}

TraceFile::~TraceFile() {
  if (!thread_.joinable()) return;
  try {
    static_cast<void>(finish(0));
  } catch (...) {  // nobody is left to be told
  }
}

Expected<void> TraceFile::finish(std::uint64_t lostEvents) {
  {
    const std::lock_guard lock(mutex_);
    isEnding_ = true;
  }
  wakeUp_.notify_all();
  thread_.join();
  writeRings();
  if (lostEvents > 0) {
    beginEvent('i', gettid(), Tracer::now());
    text_ += fmt::format(R"(,"s":"g","name":"lost events","args":{{"count":{}}}}})", lostEvents);
  }
  text_ += "\n]\n";
  flush();
  if (close(file_) != 0 && error_ == 0) error_ = errno;
  if (error_ == 0) return {};
  return failure("posix", error_,
                 fmt::format("the trace {} broke off: {}", path_.string(), std::generic_category().message(error_)));
}

void TraceFile::work() {
  pthread_setname_np(pthread_self(), "tavrel.trace");
  std::unique_lock lock(mutex_);
  while (!isEnding_) {
    lock.unlock();
    writeRings();
    lock.lock();
    wakeUp_.wait_for(lock, kInterval, [this] { return isEnding_; });
  }
}

void TraceFile::writeRings() {
  forEachRing_([this](TraceRing& ring) {
    if (const std::string name = ring.takeThreadName(); !name.empty()) {
      beginEvent('M', ring.thread, start_);
      text_ += fmt::format(R"(,"name":"thread_name","args":{{"name":{}}}}})", jsonString(name));
    }
    ring.drain([&](const TraceEvent& event) { append(ring, event); });
  });
  flush();
}

void TraceFile::beginEvent(char phase, pid_t thread, std::int64_t time) {
  const std::int64_t passed = std::max<std::int64_t>(0, time - start_);
  fmt::format_to(std::back_inserter(text_), R"({}{{"ph":"{}","pid":{},"tid":{},"ts":{}.{:03})", isFirst_ ? "\n" : ",\n",
                 phase, process_, thread, passed / 1000, passed % 1000);
  isFirst_ = false;
}

const std::string& TraceFile::jsonName(TraceName name) {
  std::string& text = jsonNames_[name];
  if (text.empty()) text = jsonString(Tracer::text(name));
  return text;
}

void TraceFile::append(const TraceRing& ring, const TraceEvent& event) {
  const auto out = std::back_inserter(text_);
  const char* const category = categoryOf(event.kind);
  const std::string& name = jsonName(event.name);
  switch (event.kind) {
    case TraceEvent::Kind::span:
      beginEvent('X', ring.thread, event.begin);
      fmt::format_to(out, R"(,"dur":{}.{:03},"cat":"{}","name":{})", event.value / 1000, event.value % 1000, category,
                     name);
      if (event.frame > 0) fmt::format_to(out, R"(,"args":{{"frame":{}}})", event.frame);
      text_ += '}';
      return;
    case TraceEvent::Kind::wait:
      // On a track of its own: it overlaps with what the thread did meanwhile.
      ++waits_;
      beginEvent('b', ring.thread, event.begin);
      fmt::format_to(out, R"(,"id":{},"cat":"{}","name":{},"args":{{"frame":{}}}}})", waits_, category, name,
                     event.frame);
      beginEvent('e', ring.thread, event.begin + event.value);
      fmt::format_to(out, R"(,"id":{},"cat":"{}","name":{}}})", waits_, category, name);
      return;
    case TraceEvent::Kind::drop: {
      const std::string_view reason = Tracer::text(event.detail);
      beginEvent('i', ring.thread, event.begin);
      fmt::format_to(out, R"(,"s":"p","cat":"{}","name":{},"args":{{"stage":{},"reason":{}}}}})", category,
                     jsonString(fmt::format("dropped by {}: {}", Tracer::text(event.name), reason)), name,
                     jsonString(reason));
      return;
    }
    case TraceEvent::Kind::gpu:
      beginEvent('C', ring.thread, event.begin);
      fmt::format_to(out, R"(,"cat":"{}","name":{},"args":{{"ms":{:.6f}}}}})", category,
                     jsonString(fmt::format("GPU {}", Tracer::text(event.name))), double(event.value) / 1e6);
      return;
    case TraceEvent::Kind::offset:
      beginEvent('C', ring.thread, event.begin);
      fmt::format_to(out, R"(,"cat":"{}","name":{},"args":{{"ms":{:.6f}}}}})", category, name,
                     double(event.value) / 1e6);
      return;
    case TraceEvent::Kind::level:
      beginEvent('C', ring.thread, event.begin);
      fmt::format_to(out, R"(,"cat":"{}","name":{},"args":{{"value":{}}}}})", category, name, event.value);
      return;
  }
}

void TraceFile::flush() {
  const char* data = text_.data();
  std::size_t left = text_.size();
  while (left > 0 && error_ == 0) {
    const ssize_t written = write(file_, data, left);
    if (written >= 0) {
      data += written;
      left -= static_cast<std::size_t>(written);
    } else if (errno != EINTR) {
      error_ = errno;
    }
  }
  text_.clear();
}

}  // namespace tavrel
