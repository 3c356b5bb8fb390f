#pragma once

#include <CLI/CLI.hpp>
#include <filesystem>
#include <functional>
#include <nlohmann/json_fwd.hpp>
#include <optional>

#include "TavrelCaptureBase.h"

namespace tavrel::tool {

/// `--stats` and `--trace FILE` of a command: what the graph did and how long it took.
class Diagnostics {
 public:
  explicit Diagnostics(CLI::App& command);
  /// Ends the measurement silently.
  ~Diagnostics();

  /// Does `work`, and measures it if requested; prints the table unless the result is JSON. Returns the exit status:
  /// the work's, or failure if the trace cannot be written or is incomplete.
  int measure(bool isJSON, const std::function<int()>& work);
  /// Ends the measurement and adds its statistics, if requested, under "stats".
  void addTo(nlohmann::ordered_json& result);

 private:
  void stop();

  bool hasStatistics_ = false;
  std::optional<std::filesystem::path> trace_;
  bool isMeasuring_ = false;
  std::optional<Error> problem_;
};

}  // namespace tavrel::tool
