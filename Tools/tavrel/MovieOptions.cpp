#include "MovieOptions.h"

#include <algorithm>
#include <cstdio>
#include <iostream>
#include <system_error>

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

void addFragmentedFlag(CLI::App& command, bool& isFragmented) {
  command.add_flag("--fragmented", isFragmented, "Leave a .mov or .mp4 in the fragments that it is written in");
}

std::string fileTypeOf(const std::filesystem::path& output) {
  if (auto type = AssetWriter::fileTypeOf(output)) return *type;
  throw UsageError(fmt::format("{}: a movie's name ends in .mov, .mp4, .mkv or .webm", output.string()));
}

Dictionary soundSettings(const AssetTrack& track, const std::string& fileType, Dictionary asked) {
  const std::int64_t channels = track.channelCount() < 6 ? std::min(2, track.channelCount()) : 6;
  asked.emplace(kAudioFormatIDKey, static_cast<std::int64_t>(AssetWriter::usualAudioFormat(fileType)));
  const auto chosen = asked.emplace(kAudioNumberOfChannelsKey, channels).first;
  asked.emplace(kAudioSampleRateKey, static_cast<double>(track.sampleRate()));
  asked.emplace(kAudioEncoderBitRateKey, 96000 * std::get<std::int64_t>(chosen->second));
  return asked;
}

bool mayWrite(const std::filesystem::path& output, bool isForced) {
  std::error_code ignored;
  if (isForced || !std::filesystem::is_regular_file(output, ignored)) return true;
  if (isatty(STDIN_FILENO) == 0) {
    say("{} exists already: --force replaces it", output.string());
    return false;
  }
  fmt::print(stderr, "tavrel: {} exists already: replace it? [y/N] ", output.string());
  std::string answer;
  std::getline(std::cin, answer);
  return answer.starts_with('y') || answer.starts_with('Y');
}

}  // namespace tavrel::tool
