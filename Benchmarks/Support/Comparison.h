#pragma once

#include <benchmark/benchmark.h>

#include <chrono>
#include <functional>
#include <utility>
#include <vector>

namespace tavrel::benchmarks {

/// What two ways to do the same work cost, in milliseconds for one repetition.
struct Comparison {
  double limit = 0;
  double own = 0;
  double ratio = 0;  ///< own / limit: the median over the pairs of blocks, so that a busy moment spoils one pair only
};

/// Runs `limit` and `own` in turns, `blocks` times each, `repetitions` repetitions a block, after one block of each
/// that does not count.
Comparison compare(int blocks, int repetitions, const std::function<void()>& limit, const std::function<void()>& own);

double millisecondsSince(std::chrono::steady_clock::time_point start);

/// The value that `share` of the values do not exceed: 0.5 for the median, 1 for the largest.
double quantile(std::vector<double> values, double share);

/// Of the straight line that lies closest to the points (x, y).
double leastSquaresSlope(const std::vector<std::pair<double, double>>& points);

/// Ends the process with a message when `isGood` is false: figures of a failed run would mislead.
void require(bool isGood, const char* what);

/// The comparison as the benchmark's counters and its time.
void report(benchmark::State& state, const Comparison& comparison);

}  // namespace tavrel::benchmarks
