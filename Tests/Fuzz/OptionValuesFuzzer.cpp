#include <cmath>
#include <cstddef>
#include <cstdint>
#include <string>

#include "Tools/tavrel/MovieOptions.h"
#include "Tools/tavrel/OptionValues.h"
#include "Tools/tavrel/Report.h"

namespace {

template <typename Parse>
void parse(Parse action) {
  try {
    action();
  } catch (const tavrel::tool::UsageError&) {
  }
}

}  // namespace

/// Values of the program's options: refused with UsageError, or within their limits.
extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* bytes, std::size_t size) {
  const std::string text(reinterpret_cast<const char*>(bytes), size);
  parse([&] {
    const tavrel::Size movie = tavrel::tool::parsedMovieSize(text);
    if (movie.width < 16 || movie.width > 8192 || movie.height < 16 || movie.height > 8192) __builtin_trap();
  });
  parse([&] { (void)tavrel::tool::fileTypeOf(text); });
  parse([&] {
    const auto numbers = tavrel::tool::parseNumbers(text, 1, 4, "--option", "numbers");
    if (numbers.empty() || numbers.size() > 4) __builtin_trap();
    for (const double number : numbers) {
      if (!std::isfinite(number)) __builtin_trap();
    }
    tavrel::tool::checkUnitRange(numbers, "--option", text);
  });
  parse([&] {
    const auto placement = tavrel::tool::parsePlacement(text, "--sticker");
    if (!(placement.rectangle.size.width > 0) || !(placement.rectangle.size.height > 0)) __builtin_trap();
    if (placement.file.size() >= text.size() || !std::isfinite(placement.radians)) __builtin_trap();
  });
  return 0;
}
