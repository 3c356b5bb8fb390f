#pragma once

#include <CLI/CLI.hpp>
#include <string>
#include <vector>

#include "TavrelCaptureBase.h"

namespace tavrel::tool {

/// The effects asked for on the command line, in the order given.
class EffectOptions {
 public:
  explicit EffectOptions(CLI::App& command);

  /// Throws UsageError for values that cannot be meant, and std::runtime_error for files that cannot be used and when
  /// there can be no GL context.
  TavrelCaptureEffectChain makeChain() const;

 private:
  using Maker = std::shared_ptr<TavrelCaptureEffect> (*)(const std::string& value);
  struct Kind {
    CLI::Option* option;
    Maker make;
  };

  CLI::App& command_;
  std::vector<Kind> kinds_;
};

}  // namespace tavrel::tool
