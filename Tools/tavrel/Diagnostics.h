#pragma once

#include <CLI/CLI.hpp>
#include <filesystem>
#include <optional>
#include <string>

#include "TavrelCaptureBase.h"

namespace tavrel::tool {

/// `--stats` and `--trace FILE` of a command: what the graph did and how long it took.
class Diagnostics {
 public:
  explicit Diagnostics(CLI::App& command);
  /// Ends the measurement, without a word.
  ~Diagnostics();

  /// Begins to measure, when that is asked for. Fails when the trace cannot be written.
  Expected<void> start();
  /// Ends the measurement. What a JSON result is to say about it: `, "stats": {…}` or nothing.
  std::string json();
  /// Ends the measurement, and prints the table unless the result is JSON. The exit status: `status`, or failure when
  /// the trace is incomplete.
  int finish(int status, bool isJSON = false);

 private:
  void stop();

  bool hasStatistics_ = false;
  std::optional<std::filesystem::path> trace_;
  bool isMeasuring_ = false;
  std::optional<Error> problem_;
};

}  // namespace tavrel::tool
