#include "RecordCommand.h"

#include <algorithm>
#include <csignal>
#include <map>

#include "Recording.h"
#include "Report.h"

namespace tavrel::tool {

RecordCommand::RecordCommand(CLI::App& app)
    : command_(app.add_subcommand("record", "Record camera and microphone into a movie")), effects_(*command_) {
  command_->add_option("OUTPUT", output_, "The movie to write: .mov, .mp4 or .mkv")->required();
  command_->add_option("--camera", camera_, "front, back or file:PATH (a movie or picture)")
      ->type_name("NAME")
      ->capture_default_str();
  command_->add_option("--microphone", microphone_, "synthetic, file:PATH (a sound file) or none")
      ->type_name("NAME")
      ->capture_default_str();
  command_->add_option("--size", size_, "Of the movie's picture, in pixels")->type_name("WxH")->capture_default_str();
  command_->add_option("--fps", framesPerSecond_, "Frames a second")->type_name("N")->capture_default_str();
  command_->add_option("--duration", duration_, "Stop after this time, pauses included; else on Ctrl-C")
      ->type_name("SECONDS");
  command_->add_option("--pause-at", pauseAt_, "Pause this long after the start")->type_name("SECONDS");
  command_->add_option("--resume-at", resumeAt_, "Go on this long after the start")->type_name("SECONDS");
  command_->add_flag("--json", json_, "Print the result as JSON");
}

RecordCommand::PictureSize RecordCommand::parsedSize() const {
  PictureSize size;
  int end = 0;
  const bool isParsed = std::sscanf(size_.c_str(), "%6dx%6d%n", &size.width, &size.height, &end) == 2 &&
                        static_cast<std::size_t>(end) == size_.size();
  constexpr int kSmallest = 16;
  constexpr int kLargest = 8192;
  const auto isUsable = [](int side) { return side >= kSmallest && side <= kLargest; };
  if (!isParsed || !isUsable(size.width) || !isUsable(size.height)) {
    throw UsageError(fmt::format("--size {}: expected WIDTHxHEIGHT, each from {} to {}", size_, kSmallest, kLargest));
  }
  return size;
}

void RecordCommand::checkTimes() const {
  if (!(framesPerSecond_ >= 1 && framesPerSecond_ <= 240)) {
    throw UsageError(fmt::format("--fps {}: expected 1 to 240", framesPerSecond_));
  }
  if (duration_ && !(*duration_ > 0)) throw UsageError(fmt::format("--duration {}: expected more than 0", *duration_));
  if (resumeAt_ && !pauseAt_) throw UsageError("--resume-at needs --pause-at");
  if (pauseAt_ && !(*pauseAt_ >= 0)) throw UsageError(fmt::format("--pause-at {}: expected 0 or more", *pauseAt_));
  if (resumeAt_ && !(*resumeAt_ > *pauseAt_)) {
    throw UsageError(fmt::format("--resume-at {}: expected more than --pause-at {}", *resumeAt_, *pauseAt_));
  }
}

std::string_view RecordCommand::fileType() const {
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

int RecordCommand::run() {
  const PictureSize size = parsedSize();
  checkTimes();
  Recording recording({.output = output_,
                       .fileType = std::string(fileType()),
                       .camera = camera_,
                       .microphone = microphone_,
                       .width = size.width,
                       .height = size.height,
                       .framesPerSecond = framesPerSecond_,
                       .duration = duration_,
                       .pauseAt = pauseAt_,
                       .resumeAt = resumeAt_},
                      effects_.makeChain());
  return recording.run(json_);
}

}  // namespace tavrel::tool
