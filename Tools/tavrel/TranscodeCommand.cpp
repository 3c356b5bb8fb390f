#include "TranscodeCommand.h"

#include "MovieOptions.h"
#include "Transcoding.h"

namespace tavrel::tool {

TranscodeCommand::TranscodeCommand(CLI::App& app)
    : command_(app.add_subcommand("transcode", "Send a movie through effects into another movie")),
      effects_(*command_),
      diagnostics_(*command_) {
  command_->add_option("INPUT", input_, "A movie")->required();
  command_->add_option("OUTPUT", output_, "The movie to write: .mov, .mp4 or .mkv")->required();
  command_->add_option("--size", size_, "Of the new movie's picture, in pixels; else as the effects leave it")
      ->type_name("WxH");
  command_->add_flag("--reverse", reverse_, "Play the pictures backwards; the sound stays as it is");
  command_->add_flag("--realtime", realtime_, "No faster than the movie plays");
  command_->add_flag("--no-audio", noAudio_, "Leave the sound out");
  command_->add_flag("--json", json_, "Print the result as JSON");
}

int TranscodeCommand::run() {
  Transcoding::Options options = {.input = input_,
                                  .output = output_,
                                  .fileType = fileTypeOf(output_),
                                  .size = size_.empty() ? std::nullopt : std::optional(parsedMovieSize(size_)),
                                  .isReversed = reverse_,
                                  .isRealTime = realtime_,
                                  .hasSound = !noAudio_};
  return Transcoding(std::move(options), effects_.makeChain()).run(json_, diagnostics_);
}

}  // namespace tavrel::tool
