#include "Model/Measurement.h"

#include <fmt/format.h>

#include <algorithm>

#include "Model/Folders.h"

namespace tavrel::studio {

Measurement::~Measurement() {
  if (isOn_) (void)TavrelTracing::stop();
}

void Measurement::restart(const std::filesystem::path& traceFile) {
  if (TavrelTracing::isOn()) (void)TavrelTracing::stop();
  latest_ = {};
  const auto started = TavrelTracing::start(traceFile);
  if (!started) messages_.fault(fmt::format("Nothing is measured: {}.", started.error().description));
}

void Measurement::setOn(bool isOn) {
  if (isOn == isOn_ || isTracing()) return;
  isOn_ = isOn;
  if (!isOn) return (void)TavrelTracing::stop();
  restart({});
}

void Measurement::startTrace(const std::filesystem::path& file) {
  if (isTracing()) return;
  std::error_code ignored;
  std::filesystem::create_directories(file.parent_path(), ignored);
  isOn_ = true;
  restart(file);
  if (TavrelTracing::isOn()) traceFile_ = file;
}

void Measurement::stopTrace() {
  if (!isTracing()) return;
  const auto file = std::exchange(traceFile_, {});
  const auto stopped = TavrelTracing::stop();
  if (stopped) {
    messages_.note(fmt::format("The trace is in {}.", shortName(file)), file);
    if (!openWithDesktop(file)) messages_.note("Open the trace in ui.perfetto.dev.", file);
  } else {
    messages_.fault(fmt::format("The trace is incomplete: {}.", stopped.error().description));
  }
  restart({});
}

void Measurement::update(double now) {
  constexpr double kInterval = 0.5;
  if (!isOn_ || isAsked_ || now - asked_ < kInterval) return;
  isAsked_ = true;
  asked_ = now;
  DispatchQueue::global()->async([weak = std::weak_ptr(alive_)] {
    DispatchQueue::main()->async([weak, statistics = TavrelTracing::statistics()] {
      const auto self = weak.lock();
      if (!self) return;
      (*self)->isAsked_ = false;
      if ((*self)->isOn_) (*self)->take(statistics);
    });
  });
}

void Measurement::take(const TavrelGraphStatistics& statistics) {
  const auto totalOf = [](const TavrelGraphStatistics& all, const std::string& name) {
    for (const auto& node : all.nodes) {
      if (node.name == name) return node.queueTime.mean * static_cast<double>(node.queueTime.count);
    }
    return 0.0;
  };
  const auto frames = static_cast<double>(statistics.framesDelivered) - static_cast<double>(latest_.framesDelivered);
  for (const auto& node : statistics.nodes) {
    if (std::find(names_.begin(), names_.end(), node.name) == names_.end()) names_.push_back(node.name);
  }
  if (frames > 0) {
    Sample sample;
    for (const std::string& name : names_) {
      sample.push_back(std::max(0.0, totalOf(statistics, name) - totalOf(latest_, name)) * 1000 / frames);
    }
    samples_.push_back(std::move(sample));
    if (samples_.size() > kMostSamples) samples_.pop_front();
  }
  latest_ = statistics;
}

}  // namespace tavrel::studio
