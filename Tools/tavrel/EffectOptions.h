#pragma once

#include <CLI/CLI.hpp>
#include <functional>
#include <memory>
#include <string>
#include <vector>

#include "TavrelCaptureBase.h"

namespace tavrel::tool {

/// The effects asked for on the command line, in the order given.
class EffectOptions {
 public:
  explicit EffectOptions(CLI::App& command);

  /// The chain of filters, first to last; empty without effects. Throws UsageError for values that cannot be meant.
  std::vector<std::shared_ptr<TavrelGPUImageFilter>> makeFilters() const;

 private:
  using Maker = std::shared_ptr<TavrelGPUImageFilter> (*)(const std::string& value);
  struct Kind {
    CLI::Option* option;
    Maker make;
  };

  CLI::App& command_;
  std::vector<Kind> kinds_;
};

/// Adds `filters`, each as the target of the one before, behind `source`; the last node.
std::shared_ptr<TavrelGPUImageOutput> chain(const std::shared_ptr<TavrelGPUImageOutput>& source,
                                            const std::vector<std::shared_ptr<TavrelGPUImageFilter>>& filters);

/// The numbers in "1,2,3"; throws UsageError naming `option` and `expected` unless there are exactly `count`.
std::vector<double> parseNumbers(const std::string& text, std::size_t count, const char* option, const char* expected);

}  // namespace tavrel::tool
