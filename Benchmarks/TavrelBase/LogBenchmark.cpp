// The log calls beside spdlog's in the same process: what a disabled call costs, what an asynchronous call costs its
// caller, and how many records a second reach a file. Both write the same line.
#include <benchmark/benchmark.h>
#include <spdlog/async.h>
#include <spdlog/sinks/basic_file_sink.h>
#include <spdlog/sinks/null_sink.h>
#include <spdlog/spdlog.h>

#include <chrono>
#include <filesystem>
#include <thread>
#include <vector>

#include "TavrelBase/Log/TavrelLogger.h"

namespace tavrel {
namespace {

using Clock = std::chrono::steady_clock;
constexpr const char* kPattern = "bench[%P:%t] [%L] Tag %v %! %s:%# %Y/%m/%d %H:%M:%S:%e";

std::filesystem::path folder() {
  auto path = std::filesystem::temp_directory_path() / "tavrel-log-benchmark";
  std::filesystem::create_directories(path);
  return path;
}

double secondsSince(Clock::time_point start) { return std::chrono::duration<double>(Clock::now() - start).count(); }

/// The library with a file logger, for one benchmark.
class Tavrel {
 public:
  explicit Tavrel(int loggerCount = 1) {
    TavrelDDLog::removeAllLoggers();
    for (int i = 0; i < loggerCount; ++i) {
      auto manager = std::make_shared<TavrelDDLogFileManagerDefault>(folder() / std::to_string(i));
      auto logger = std::make_shared<TavrelDDFileLogger>(manager);
      logger->setMaximumFileSize(0);
      logger->setDoNotReuseLogFiles(true);
      TavrelDDLog::addLogger(logger);
    }
    finish();
  }
  ~Tavrel() {
    TavrelDDLog::removeAllLoggers();
    finish();
    std::filesystem::remove_all(folder());
  }
  void logError(int i) const { TAVREL_LOG_ERROR("Tag", "frame {} took {} ms", i, 16.625); }
  void log(int i) const { TAVREL_LOG_INFO("Tag", "frame {} took {} ms, {} waiting", i, 16.625, "none"); }
  /// Everything is with the kernel then, as after spdlog's flush; `flushLog` would wait for the disk too.
  void finish() { TavrelDDLog::allLoggers(); }
};

/// The same with a second logger, which only takes what it is given.
class TavrelAndSink : public Tavrel {
 public:
  explicit TavrelAndSink(int loggerCount) : Tavrel(loggerCount) {
    TavrelDDLog::addLogger(std::make_shared<Sink>());
    finish();
  }

 private:
  struct Sink : TavrelDDAbstractLogger {
    void logMessage(const TavrelDDLogMessage& message) override { benchmark::DoNotOptimize(message.message().size()); }
  };
};

/// spdlog's asynchronous logger with one thread, a blocking queue and a file sink.
class Spdlog {
 public:
  explicit Spdlog(int = 1, std::size_t queueSize = spdlog::details::default_async_q_size)
      : pool_(std::make_shared<spdlog::details::thread_pool>(queueSize, 1)) {
    auto sink = std::make_shared<spdlog::sinks::basic_file_sink_mt>((folder() / "spdlog.log").string(), true);
    logger_ = std::make_shared<spdlog::async_logger>("bench", std::move(sink), pool_);
    logger_->set_pattern(kPattern);
  }
  void addSink() const { logger_->sinks().push_back(std::make_shared<spdlog::sinks::null_sink_mt>()); }
  ~Spdlog() {
    finish();
    logger_.reset();
    std::filesystem::remove_all(folder());
  }
  void log(int i) const {
    logger_->log(spdlog::source_loc{__FILE__, __LINE__, __func__}, spdlog::level::info,
                 "frame {} took {} ms, {} waiting", i, 16.625, "none");
  }
  /// Ends the pool, which writes everything: there is no other way to wait for it.
  void finish() {
    pool_.reset();
    logger_->sinks().front()->flush();
  }

 private:
  std::shared_ptr<spdlog::details::thread_pool> pool_;
  std::shared_ptr<spdlog::async_logger> logger_;
};

struct SpdlogAndSink : Spdlog {
  explicit SpdlogAndSink(int) { addSink(); }
};

/// spdlog's synchronous logger, which flushes after each record as the library's errors are written.
class SpdlogSynchronous {
 public:
  SpdlogSynchronous()
      : logger_("bench",
                std::make_shared<spdlog::sinks::basic_file_sink_mt>((folder() / "spdlog.log").string(), true)) {
    logger_.set_pattern(kPattern);
    logger_.flush_on(spdlog::level::err);
  }
  ~SpdlogSynchronous() { std::filesystem::remove_all(folder()); }
  void logError(int i) {
    logger_.log(spdlog::source_loc{__FILE__, __LINE__, __func__}, spdlog::level::err, "frame {} took {} ms", i, 16.625);
  }

 private:
  spdlog::logger logger_;
};

void disabledTavrel(benchmark::State& state) {
  TavrelLogger::setLogLevel(1);
  for (auto _ : state) TAVREL_LOG_INFO("Tag", "frame {} took {} ms", 1, 16.625);
  TavrelLogger::setLogLevel(4);
}
BENCHMARK(disabledTavrel);

void disabledSpdlog(benchmark::State& state) {
  Spdlog spdlog;
  auto logger = spdlog::default_logger_raw();
  logger->set_level(spdlog::level::err);
  for (auto _ : state) SPDLOG_LOGGER_CALL(logger, spdlog::level::info, "frame {} took {} ms", 1, 16.625);
}
BENCHMARK(disabledSpdlog);

/// Bursts that fit into the queues, so that what is measured is the call and not the disk.
template <typename Library>
void callerCost(benchmark::State& state) {
  constexpr int kBurst = 500;
  const int threadCount = static_cast<int>(state.range(0));
  for (auto _ : state) {
    Library library;
    library.log(-1);  // the first record starts threads and opens the file
    std::this_thread::sleep_for(std::chrono::milliseconds(2));
    std::vector<double> seconds(threadCount);
    std::vector<std::thread> threads;
    for (int thread = 0; thread < threadCount; ++thread) {
      threads.emplace_back([&, thread] {
        const auto start = Clock::now();
        for (int i = 0; i < kBurst / threadCount; ++i) library.log(i);
        seconds[thread] = secondsSince(start);
      });
    }
    for (auto& thread : threads) thread.join();
    double total = 0;
    for (const double each : seconds) total += each;
    state.SetIterationTime(total / kBurst);
  }
}
BENCHMARK(callerCost<Tavrel>)->Arg(1)->Arg(4)->UseManualTime()->Iterations(100)->Unit(benchmark::kNanosecond);
BENCHMARK(callerCost<Spdlog>)->Arg(1)->Arg(4)->UseManualTime()->Iterations(100)->Unit(benchmark::kNanosecond);

/// An error, which is with the kernel when the call returns.
template <typename Library>
void synchronousError(benchmark::State& state) {
  Library library;
  for (auto _ : state) library.logError(1);
}
BENCHMARK(synchronousError<Tavrel>)->Iterations(20000);
BENCHMARK(synchronousError<SpdlogSynchronous>)->Iterations(20000);

/// One call at a time, so many microseconds apart: with the longer distance each one wakes the thread that writes.
template <typename Library>
void callerCostWhenIdle(benchmark::State& state) {
  Library library;
  for (auto _ : state) {
    std::this_thread::sleep_for(std::chrono::microseconds(state.range(0)));
    const auto start = Clock::now();
    library.log(1);
    state.SetIterationTime(secondsSince(start));
  }
}
BENCHMARK(callerCostWhenIdle<Tavrel>)
    ->Arg(300)
    ->Arg(5000)
    ->UseManualTime()
    ->Iterations(500)
    ->Unit(benchmark::kNanosecond);
BENCHMARK(callerCostWhenIdle<Spdlog>)
    ->Arg(300)
    ->Arg(5000)
    ->UseManualTime()
    ->Iterations(500)
    ->Unit(benchmark::kNanosecond);

/// As many records as possible, until all are in the file.
template <typename Library, std::size_t... queueSize>
void throughput(benchmark::State& state) {
  constexpr int kRecords = 200000;
  const int threadCount = static_cast<int>(state.range(0));
  for (auto _ : state) {
    Library library(static_cast<int>(state.range(1)), queueSize...);
    const auto start = Clock::now();
    std::vector<std::thread> threads;
    for (int thread = 0; thread < threadCount; ++thread) {
      threads.emplace_back([&] {
        for (int i = 0; i < kRecords / threadCount; ++i) library.log(i);
      });
    }
    for (auto& thread : threads) thread.join();
    library.finish();
    state.SetIterationTime(secondsSince(start));
  }
  state.SetItemsProcessed(state.iterations() * kRecords);
}
#define THROUGHPUT(...) \
  BENCHMARK(throughput<__VA_ARGS__>)->UseManualTime()->Unit(benchmark::kMillisecond)->Iterations(1)
THROUGHPUT(Tavrel)->Args({1, 1})->Args({8, 1})->Args({1, 3});
THROUGHPUT(TavrelAndSink)->Args({1, 1});
THROUGHPUT(Spdlog)->Args({1, 1})->Args({8, 1});
THROUGHPUT(SpdlogAndSink)->Args({1, 1});
// With a queue as long as the library's backlog.
THROUGHPUT(Spdlog, TavrelDDLog::kMaximumQueueSize)->Args({1, 1})->Args({8, 1});

}  // namespace
}  // namespace tavrel

BENCHMARK_MAIN();
