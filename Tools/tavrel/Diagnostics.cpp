#include "Diagnostics.h"

#include "Report.h"

namespace tavrel::tool {

Diagnostics::Diagnostics(CLI::App& command) {
  command.add_flag("--stats", hasStatistics_,
                   "Print, at the end, where time went and frames were lost: on standard error, or in the JSON result");
  command
      .add_option("--trace", trace_,
                  "Write what each frame went through, for ui.perfetto.dev or Chrome's about:tracing")
      ->type_name("FILE");
}

Diagnostics::~Diagnostics() {
  stop();
}

Expected<void> Diagnostics::start() {
  if (!hasStatistics_ && !trace_) return {};
  auto started = TavrelTracing::start(trace_.value_or(std::filesystem::path()));
  isMeasuring_ = started.has_value();
  return started;
}

void Diagnostics::stop() {
  if (!isMeasuring_) return;
  isMeasuring_ = false;
  if (const auto stopped = TavrelTracing::stop(); !stopped) problem_ = stopped.error();
}

std::string Diagnostics::json() {
  stop();
  return hasStatistics_ ? ", \"stats\": " + TavrelTracing::statistics().json() : std::string();
}

int Diagnostics::finish(int status, bool isJSON) {
  const bool hasMeasured = isMeasuring_;
  stop();
  if (hasStatistics_ && hasMeasured && !isJSON) {
    std::fflush(stdout);
    fmt::print(stderr, "{}", TavrelTracing::statistics().description());
  }
  if (!problem_) return status;
  return fail("{}", problem_->description);
}

}  // namespace tavrel::tool
