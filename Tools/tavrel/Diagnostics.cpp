#include "Diagnostics.h"

#include <nlohmann/json.hpp>

#include "Report.h"

namespace tavrel::tool {

Diagnostics::Diagnostics(CLI::App& command) {
  command.add_flag("--stats", hasStatistics_,
                   "Finally print where time went and frames were lost: on standard error, or in the JSON result");
  command.add_option("--trace", trace_, "Record the path of each frame, for ui.perfetto.dev or Chrome's about:tracing")
      ->type_name("FILE");
}

Diagnostics::~Diagnostics() { stop(); }

void Diagnostics::stop() {
  if (!isMeasuring_) return;
  isMeasuring_ = false;
  if (const auto stopped = TavrelTracing::stop(); !stopped) problem_ = stopped.error();
}

void Diagnostics::addTo(nlohmann::ordered_json& result) {
  stop();
  if (hasStatistics_) result["stats"] = nlohmann::ordered_json::parse(TavrelTracing::statistics().json());
}

int Diagnostics::measure(bool isJSON, const std::function<int()>& work) {
  if (!hasStatistics_ && !trace_) return work();
  const auto started = TavrelTracing::start(trace_.value_or(std::filesystem::path()));
  if (!started) return fail("{}", started.error().description);
  isMeasuring_ = true;
  const int status = work();
  stop();
  if (hasStatistics_ && !isJSON) {
    std::fflush(stdout);
    fmt::print(stderr, "{}", TavrelTracing::statistics().description());
  }
  return problem_ ? fail("{}", problem_->description) : status;
}

}  // namespace tavrel::tool
