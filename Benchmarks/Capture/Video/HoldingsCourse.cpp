#include "HoldingsCourse.h"

#include <GLES2/gl2.h>
#include <malloc.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <utility>

#include "Support/Comparison.h"
#include "TavrelCaptureBase.h"

namespace tavrel::benchmarks {
namespace {

/// How many framebuffer objects the graph has once it gave up all idle ones.
int heldFramebuffers() {
  TavrelGPUImageContext::sharedFramebufferCache()->purgeAllUnassignedFramebuffers();
  int count = 0;
  TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
    TavrelGPUImageContext::useImageProcessingContext();
    for (GLuint name = 1; name < 4096; ++name) count += glIsFramebuffer(name) ? 1 : 0;
  });
  return count;
}

/// In MiB for a unit of `at`.
double slopeOf(const std::vector<Holdings>& all, double Holdings::*memory) {
  std::vector<std::pair<double, double>> points;
  for (const Holdings& each : all) points.emplace_back(each.at, each.*memory);
  return leastSquaresSlope(points);
}

}  // namespace

Holdings Holdings::now(double at) {
  Holdings held;
  held.at = at;
  const struct mallinfo2 heap = mallinfo2();
  held.allocatedMiB = static_cast<double>(heap.uordblks + heap.hblkhd) / 1048576;
  std::ifstream status("/proc/self/status");
  for (std::string line; std::getline(status, line);) {
    if (line.starts_with("VmRSS:")) held.residentMiB = std::stod(line.substr(6)) / 1024;
    if (line.starts_with("Threads:")) held.threads = std::stoi(line.substr(8));
  }
  for (const auto& entry : std::filesystem::directory_iterator("/proc/self/fd")) {
    held.descriptors += entry.exists() ? 1 : 0;
  }
  return held;
}

HoldingsCourse::HoldingsCourse(std::string name, double total)
    : name_(std::move(name)), total_(total), framebuffersBefore_(heldFramebuffers()) {}

void HoldingsCourse::note(double at) {
  if (!all_.empty() && at < all_.back().at + total_ / 200) return;
  all_.push_back(Holdings::now(at));
}

bool HoldingsCourse::judge(double perUnit, const char* per) const {
  std::vector<Holdings> counted;
  for (const Holdings& each : all_) {
    if (each.at >= total_ / 4) counted.push_back(each);
  }
  require(counted.size() > 10, "noting the holdings");
  const double resident = slopeOf(counted, &Holdings::residentMiB);
  const double allocated = slopeOf(counted, &Holdings::allocatedMiB);
  const double duration = counted.back().at - counted.front().at;
  const int held = heldFramebuffers();
  std::printf("%s: resident %.1f MiB after the warm-up, %.1f at the end, slope %+.2f MiB %s\n", name_.c_str(),
              counted.front().residentMiB, counted.back().residentMiB, resident * perUnit, per);
  std::printf("%s: allocated %.1f MiB after the warm-up, %.1f at the end, slope %+.2f MiB %s\n", name_.c_str(),
              counted.front().allocatedMiB, counted.back().allocatedMiB, allocated * perUnit, per);
  std::printf("%s: threads %d → %d, file descriptors %d → %d, framebuffers held %d → %d, last noted at %.0f\n",
              name_.c_str(), counted.front().threads, counted.back().threads, counted.front().descriptors,
              counted.back().descriptors, framebuffersBefore_, held, counted.back().at);
  // What is on its way through the chain comes and goes, and the allocator's pieces of each thread fill up for a
  // while.
  constexpr double kNoise = 4;
  const bool isGood = allocated * duration < kNoise && resident * duration < kNoise &&
                      counted.back().threads <= counted.front().threads + 1 &&
                      counted.back().descriptors <= counted.front().descriptors && held <= framebuffersBefore_;
  if (!isGood) std::printf("%s: something grows\n", name_.c_str());
  return isGood;
}

}  // namespace tavrel::benchmarks
