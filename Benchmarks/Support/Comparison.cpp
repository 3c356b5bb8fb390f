#include "Support/Comparison.h"

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <vector>

namespace tavrel::benchmarks {
namespace {

double milliseconds(int repetitions, const std::function<void()>& work) {
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < repetitions; ++i) work();
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count() / repetitions;
}

double median(std::vector<double> values) {
  const auto middle = values.begin() + static_cast<std::ptrdiff_t>(values.size() / 2);
  std::nth_element(values.begin(), middle, values.end());
  return *middle;
}

}  // namespace

Comparison compare(int blocks, int repetitions, const std::function<void()>& limit, const std::function<void()>& own) {
  milliseconds(repetitions, limit);
  milliseconds(repetitions, own);
  std::vector<double> limits, owns, ratios;
  for (int block = 0; block < blocks; ++block) {
    // Each goes first every other time: what the one leaves in the caches must not favour the other.
    const bool isOwnFirst = block % 2 == 1;
    double ownTime = isOwnFirst ? milliseconds(repetitions, own) : 0;
    const double limitTime = milliseconds(repetitions, limit);
    if (!isOwnFirst) ownTime = milliseconds(repetitions, own);
    limits.push_back(limitTime);
    owns.push_back(ownTime);
    ratios.push_back(ownTime / limitTime);
  }
  return {median(limits), median(owns), median(ratios)};
}

void require(bool isGood, const char* what) {
  if (isGood) return;
  std::fprintf(stderr, "%s failed\n", what);
  std::abort();
}

void report(benchmark::State& state, const Comparison& comparison) {
  state.SetIterationTime(comparison.own / 1000);
  state.counters["limit_ms"] = comparison.limit;
  state.counters["ratio"] = comparison.ratio;
}

}  // namespace tavrel::benchmarks
