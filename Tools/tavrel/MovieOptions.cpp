#include "MovieOptions.h"

#include <algorithm>
#include <cctype>
#include <cstdio>
#include <map>

#include "Report.h"

namespace tavrel::tool {

Size parsedMovieSize(const std::string& text) {
  int width = 0;
  int height = 0;
  int end = 0;
  const bool isParsed = std::sscanf(text.c_str(), "%6dx%6d%n", &width, &height, &end) == 2 &&
                        static_cast<std::size_t>(end) == text.size();
  constexpr int kSmallest = 16;
  constexpr int kLargest = 8192;
  const auto isUsable = [](int side) { return side >= kSmallest && side <= kLargest; };
  if (!isParsed || !isUsable(width) || !isUsable(height)) {
    throw UsageError(fmt::format("--size {}: expected WIDTHxHEIGHT, each from {} to {}", text, kSmallest, kLargest));
  }
  return {static_cast<double>(width), static_cast<double>(height)};
}

std::string fileTypeOf(const std::filesystem::path& output) {
  static const std::map<std::string, const char*> types = {
      {".mov", kFileTypeQuickTimeMovie}, {".mp4", kFileTypeMPEG4}, {".mkv", kFileTypeMatroska}};
  std::string extension = output.extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char character) { return static_cast<char>(std::tolower(character)); });
  const auto type = types.find(extension);
  if (type == types.end()) {
    throw UsageError(fmt::format("{}: a movie's name ends in .mov, .mp4 or .mkv", output.string()));
  }
  return type->second;
}

Rect centredPart(Size size, Size wanted) {
  const Rect part = rectWithAspectRatioInsideRect(wanted, {{0, 0}, size});
  return {{part.origin.x / size.width, part.origin.y / size.height},
          {part.size.width / size.width, part.size.height / size.height}};
}

}  // namespace tavrel::tool
