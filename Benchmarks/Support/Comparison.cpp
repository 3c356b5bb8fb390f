#include "Support/Comparison.h"

#include <algorithm>
#include <cstdio>
#include <cstdlib>

namespace tavrel::benchmarks {
namespace {

double milliseconds(int repetitions, const std::function<void()>& work) {
  const auto start = std::chrono::steady_clock::now();
  for (int i = 0; i < repetitions; ++i) work();
  return millisecondsSince(start) / repetitions;
}

}  // namespace

double millisecondsSince(std::chrono::steady_clock::time_point start) {
  return std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - start).count();
}

double quantile(std::vector<double> values, double share) {
  const auto place = values.begin() + static_cast<std::ptrdiff_t>(share * static_cast<double>(values.size() - 1));
  std::nth_element(values.begin(), place, values.end());
  return *place;
}

double leastSquaresSlope(const std::vector<std::pair<double, double>>& points) {
  double meanX = 0, meanY = 0;
  for (const auto& [x, y] : points) {
    meanX += x / static_cast<double>(points.size());
    meanY += y / static_cast<double>(points.size());
  }
  double products = 0, squares = 0;
  for (const auto& [x, y] : points) {
    products += (x - meanX) * (y - meanY);
    squares += (x - meanX) * (x - meanX);
  }
  return products / squares;
}

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
  return {quantile(limits, 0.5), quantile(owns, 0.5), quantile(ratios, 0.5)};
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
