#include "TranscodeCommand.h"

#include <algorithm>
#include <map>

#include "Report.h"
#include "Transcoding.h"

namespace tavrel::tool {

TranscodeCommand::TranscodeCommand(CLI::App& app)
    : command_(app.add_subcommand("transcode", "Send a movie through effects into another movie")),
      effects_(*command_) {
  command_->add_option("INPUT", input_, "A movie")->required();
  command_->add_option("OUTPUT", output_, "The movie to write: .mov, .mp4 or .mkv")->required();
  command_->add_option("--size", size_, "Of the new movie's picture, in pixels; else as the effects leave it")
      ->type_name("WxH");
  command_->add_flag("--reverse", reverse_, "Play the pictures backwards; the sound stays as it is");
  command_->add_flag("--realtime", realtime_, "No faster than the movie plays");
  command_->add_flag("--no-audio", noAudio_, "Leave the sound out");
  command_->add_flag("--json", json_, "Print the result as JSON");
}

std::optional<Size> TranscodeCommand::parsedSize() const {
  if (size_.empty()) return std::nullopt;
  int width = 0;
  int height = 0;
  int end = 0;
  const bool isParsed = std::sscanf(size_.c_str(), "%6dx%6d%n", &width, &height, &end) == 2 &&
                        static_cast<std::size_t>(end) == size_.size();
  constexpr int kSmallest = 16;
  constexpr int kLargest = 8192;
  const auto isUsable = [](int side) { return side >= kSmallest && side <= kLargest; };
  if (!isParsed || !isUsable(width) || !isUsable(height)) {
    throw UsageError(fmt::format("--size {}: expected WIDTHxHEIGHT, each from {} to {}", size_, kSmallest, kLargest));
  }
  return Size{static_cast<double>(width), static_cast<double>(height)};
}

std::string_view TranscodeCommand::fileType() const {
  static const std::map<std::string, const char*> types = {
      {".mov", kFileTypeQuickTimeMovie}, {".mp4", kFileTypeMPEG4}, {".mkv", kFileTypeMatroska}};
  std::string extension = output_.extension().string();
  std::transform(extension.begin(), extension.end(), extension.begin(),
                 [](unsigned char character) { return static_cast<char>(std::tolower(character)); });
  const auto type = types.find(extension);
  if (type == types.end()) {
    throw UsageError(fmt::format("{}: a movie's name ends in .mov, .mp4 or .mkv", output_.string()));
  }
  return type->second;
}

int TranscodeCommand::run() {
  Transcoding::Options options = {.input = input_,
                                  .output = output_,
                                  .fileType = std::string(fileType()),
                                  .size = parsedSize(),
                                  .isReversed = reverse_,
                                  .isRealTime = realtime_,
                                  .hasSound = !noAudio_};
  return Transcoding(std::move(options), effects_.makeChain()).run(json_);
}

}  // namespace tavrel::tool
