#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "TavrelCaptureBase.h"

namespace tavrel::tool {

/// The effects given on the command line, in their order.
class EffectOptions {
 public:
  explicit EffectOptions(CLI::App& command);

  /// Throws UsageError for invalid values, and std::runtime_error for unusable files and without a GL context.
  TavrelCaptureEffectChain makeChain() const;
  /// Whether the command line says anything about effects. Without, a movie may need no GL context.
  bool areAsked() const;
  /// Bits of each component between effects; 0 where none were asked for.
  int precision() const { return precision_; }

 private:
  using Maker = std::shared_ptr<TavrelCaptureEffect> (*)(const std::string& value);
  struct Kind {
    CLI::Option* option;
    Maker make;
  };

  CLI::App& command_;
  std::vector<Kind> kinds_;
  bool worksInLight_ = false;
  int precision_ = 0;
  std::string resampling_ = "linear";
};

}  // namespace tavrel::tool
