#include "Command.h"
#include "Diagnostics.h"
#include "EffectOptions.h"
#include "EncodingOptions.h"
#include "InputMovie.h"
#include "MovieOptions.h"
#include "PlainTranscoding.h"
#include "Transcoding.h"

namespace tavrel::tool {
namespace {

class TranscodeCommand : public Command {
 public:
  explicit TranscodeCommand(CLI::App& app)
      : Command(app, "transcode", "Apply effects to a movie"),
        effects_(*command_),
        encoding_(*command_, EncodingOptions::Copying::possible),
        diagnostics_(*command_) {
    command_->add_option("INPUT", options_.input, "The movie to read")->required();
    command_->add_option("OUTPUT", options_.output, "The movie to write: .mov, .mp4, .mkv or .webm")->required();
    command_->add_option("--size", size_, "Frame size in pixels; by default the result of the effects")
        ->type_name("WxH");
    command_->add_flag("--reverse", options_.isReversed, "Reverse the video, but not the audio");
    command_->add_flag("--realtime", options_.isRealTime, "Run no faster than the movie plays");
    command_->add_flag("--no-audio", noAudio_, "Leave out the audio");
    command_->add_flag("--force", isForced_, "Replace a file that has the movie's name");
    addFragmentedFlag(*command_, options_.isFragmented);
    command_->add_flag("--json", json_, "Print the result as JSON");
  }

  int run() override {
    options_.fileType = fileTypeOf(options_.output);
    if (!size_.empty()) options_.size = parsedMovieSize(size_);
    options_.hasSound = !noAudio_;
    encoding_.check();
    options_.videoSettings = encoding_.videoSettings();
    options_.audioSettings = encoding_.audioSettings();
    options_.isCopy = encoding_.isCopy();
    TavrelCaptureEffectChain effects = effects_.makeChain();
    if (options_.isCopy &&
        (!effects.effects().empty() || options_.size || options_.isReversed || options_.isRealTime)) {
      throw UsageError(
          "--codec copy leaves the pictures as they are: leave out effects, --size, --reverse and --realtime");
    }
    if (!mayWrite(options_.output, isForced_)) return kFailure;
    auto movie = InputMovie::open(options_);
    if (!movie) return fail("{}", movie.error().description);
    return diagnostics_.measure(json_, [&] {
      if (options_.isCopy || (effects.effects().empty() && PlainTranscoding::serves(options_, *movie))) {
        return PlainTranscoding(options_, *movie).run(json_, diagnostics_);
      }
      return Transcoding(options_, *movie, std::move(effects)).run(json_, diagnostics_);
    });
  }

 private:
  EffectOptions effects_;
  EncodingOptions encoding_;
  Diagnostics diagnostics_;
  TranscodingOptions options_;
  std::string size_;
  bool noAudio_ = false;
  bool isForced_ = false;
  bool json_ = false;
};

}  // namespace

std::unique_ptr<Command> makeTranscodeCommand(CLI::App& app) { return std::make_unique<TranscodeCommand>(app); }

}  // namespace tavrel::tool
