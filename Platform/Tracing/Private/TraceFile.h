#pragma once

#include <condition_variable>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "Platform/Foundation/Error.h"
#include "Platform/Tracing/Private/TraceRing.h"

namespace tavrel {

/// Writes a trace as the JSON array of the Trace Event Format, on a thread of its own:
/// https://docs.google.com/document/d/1CvAClvFfyA5R-PhYUmn5OOQtYMH4h6I0nSsKchNAySU ("JSON Array Format").
///
/// The format lets the closing bracket be missing, and each comma is written in front of its event and together with
/// it: what a killed process leaves can be opened.
class TraceFile {
 public:
  /// Calls its argument for every ring there is.
  using RingVisitor = std::function<void(const std::function<void(TraceRing&)>&)>;

  /// Fails when the file cannot be written.
  static Expected<std::unique_ptr<TraceFile>> create(const std::filesystem::path& path, RingVisitor forEachRing);
  TraceFile(const TraceFile&) = delete;
  TraceFile& operator=(const TraceFile&) = delete;
  ~TraceFile();

  /// Writes what is left, `lostEvents`, and the end. Fails when something could not be written: a full disk, say.
  Expected<void> finish(std::uint64_t lostEvents);

 private:
  TraceFile(std::filesystem::path path, int file, RingVisitor forEachRing);
  void work();
  void writeRings();
  void append(const TraceRing& ring, const TraceEvent& event);
  void beginEvent(char phase, pid_t thread, std::int64_t time);
  void flush();
  /// Names are few and events many: each is escaped once.
  const std::string& jsonName(TraceName name);

  const std::filesystem::path path_;
  const int file_;
  const RingVisitor forEachRing_;
  const std::int64_t start_;
  const pid_t process_;
  std::string text_;  // not yet in the file
  std::map<TraceName, std::string> jsonNames_;
  bool isFirst_ = true;
  std::uint64_t waits_ = 0;
  int error_ = 0;

  std::mutex mutex_;
  std::condition_variable wakeUp_;
  bool isEnding_ = false;
  std::thread thread_;
};

}  // namespace tavrel
