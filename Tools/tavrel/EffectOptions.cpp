#include "EffectOptions.h"

#include <charconv>
#include <cmath>
#include <map>

#include "Report.h"

namespace tavrel::tool {
namespace {

std::shared_ptr<TavrelGPUImageFilter> makeCrop(const std::string& value) {
  const std::vector<double> numbers = parseNumbers(value, 4, "--crop", "X,Y,W,H, each from 0 to 1");
  const Rect region = {{numbers[0], numbers[1]}, {numbers[2], numbers[3]}};
  // A little more than 1 is allowed for thirds and the like.
  constexpr double kLargest = 1 + 1e-6;
  for (const double number : numbers) {
    if (!(number >= 0 && number <= 1)) throw UsageError(fmt::format("--crop {}: {} is not from 0 to 1", value, number));
  }
  if (region.size.width == 0 || region.size.height == 0) {
    throw UsageError(fmt::format("--crop {}: the rectangle is empty", value));
  }
  if (region.maxX() > kLargest || region.maxY() > kLargest) {
    throw UsageError(fmt::format("--crop {}: the rectangle reaches beyond the picture", value));
  }
  return std::make_shared<TavrelGPUImageCropFilter>(region);
}

std::shared_ptr<TavrelGPUImageFilter> makeTurned(TavrelGPUImageRotationMode rotation) {
  auto filter = std::make_shared<TavrelGPUImageFilter>();
  filter->setInputRotation(rotation, 0);
  return filter;
}

std::shared_ptr<TavrelGPUImageFilter> makeMirror(const std::string&) {
  return makeTurned(kTavrelGPUImageFlipHorizontal);
}

std::shared_ptr<TavrelGPUImageFilter> makeRotation(const std::string& value) {
  const double number = parseNumbers(value, 1, "--rotate", "a mode from 0 to 7").front();
  if (number != std::floor(number) || number < 0 || number > 7) {
    throw UsageError(fmt::format("--rotate {}: the mode is a whole number from 0 to 7", value));
  }
  return makeTurned(static_cast<TavrelGPUImageRotationMode>(number));
}

}  // namespace

std::vector<double> parseNumbers(const std::string& text, std::size_t count, const char* option, const char* expected) {
  std::vector<double> numbers;
  const char* position = text.data();
  const char* const end = position + text.size();
  while (numbers.size() <= count) {
    double number = 0;
    const auto [next, error] = std::from_chars(position, end, number);
    if (error != std::errc() || !std::isfinite(number)) break;
    numbers.push_back(number);
    position = next;
    if (position == end || *position != ',') break;
    ++position;
  }
  if (numbers.size() != count || position != end) {
    throw UsageError(fmt::format("{} {}: expected {}", option, text, expected));
  }
  return numbers;
}

EffectOptions::EffectOptions(CLI::App& command) : command_(command) {
  // Values are taken apart here, not by the parser, so that the order of different options is kept.
  const auto add = [&](CLI::Option* option, Maker make) {
    option->group("Effects, applied in the order given")->multi_option_policy(CLI::MultiOptionPolicy::TakeAll);
    kinds_.push_back({option, make});
  };
  add(command.add_option("--crop", "Keep this part of the picture, in 0..1")->type_name("X,Y,W,H")->type_size(1),
      makeCrop);
  add(command.add_flag("--mirror")->description("Exchange left and right"), makeMirror);
  add(command
          .add_option(
              "--rotate",
              "Turn the picture: 0 not at all, 1 left, 2 right, 3 flip vertical, 4 flip horizontal, 5 right and "
              "flip vertical, 6 right and flip horizontal, 7 upside down")
          ->type_name("0..7")
          ->type_size(1),
      makeRotation);
}

std::vector<std::shared_ptr<TavrelGPUImageFilter>> EffectOptions::makeFilters() const {
  std::vector<std::shared_ptr<TavrelGPUImageFilter>> filters;
  std::map<const CLI::Option*, std::size_t> used;
  for (const CLI::Option* given : command_.parse_order()) {
    for (const Kind& kind : kinds_) {
      if (kind.option != given) continue;
      filters.push_back(kind.make(given->results().at(used[given]++)));
    }
  }
  return filters;
}

std::shared_ptr<TavrelGPUImageOutput> chain(const std::shared_ptr<TavrelGPUImageOutput>& source,
                                            const std::vector<std::shared_ptr<TavrelGPUImageFilter>>& filters) {
  std::shared_ptr<TavrelGPUImageOutput> last = source;
  for (const auto& filter : filters) {
    last->addTarget(filter);
    last = filter;
  }
  return last;
}

}  // namespace tavrel::tool
