#include <algorithm>

#include "Command.h"
#include "Diagnostics.h"
#include "EffectOptions.h"
#include "EncodingOptions.h"
#include "InputMovie.h"
#include "MovieOptions.h"
#include "OptionValues.h"
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
    command_
        ->add_option("--scale", scaling_,
                     "How pictures get that size: fit (with black bars), fill (cut off) or stretch")
        ->type_name("MODE");
    command_->add_flag("--square", options_.isSquared, "Make the pixels square, as with effects");
    command_->add_option("--hdr", hdr_, "High dynamic range: map (to BT.709) or keep (in 10 bits, as hevc unless told)")
        ->type_name("MODE");
    command_->add_option("--interlaced", interlaced_, "Fields: deinterlace or keep (in h264)")->type_name("MODE");
    command_->add_flag("--reverse", options_.isReversed, "Reverse the video, but not the audio");
    command_->add_flag("--realtime", options_.isRealTime, "Run no faster than the movie plays");
    command_->add_flag("--no-audio", noAudio_, "Leave out the audio");
    command_
        ->add_option("--audio-track", options_.soundTrack,
                     "Which audio: its number from 1, or all; by default the main one")
        ->type_name("N");
    command_->add_option("--from", from_, "Where to begin, in seconds or as HH:MM:SS")->type_name("TIME");
    command_->add_option("--to", to_, "Where to end")->type_name("TIME");
    command_->add_flag("--progress", options_.printsProgress, "Print a line of JSON a second on standard error");
    command_->add_flag("--force", isForced_, "Replace a file that has the movie's name");
    addFragmentedFlag(*command_, options_.isFragmented);
    command_->add_flag("--json", json_, "Print the result as JSON");
  }

  int run() override {
    options_.fileType = fileTypeOf(options_.output);
    if (!size_.empty()) options_.size = parsedMovieSize(size_);
    options_.scalingMode = scalingMode();
    options_.hasSound = !noAudio_;
    options_.timeRange = timeRange();
    encoding_.check();
    options_.videoSettings = encoding_.videoSettings();
    options_.audioSettings = encoding_.audioSettings();
    options_.isCopy = encoding_.isCopy();
    checkSoundTrack();
    options_.keepsHDR = isKept("--hdr", hdr_, "map");
    options_.keepsFields = isKept("--interlaced", interlaced_, "deinterlace");
    checkCodec();
    const bool hasEffects = effects_.areAsked();
    TavrelCaptureEffectChain effects = hasEffects ? effects_.makeChain() : TavrelCaptureEffectChain({});
    if (options_.isCopy && (!effects.effects().empty() || options_.size || options_.isSquared || options_.isReversed ||
                            options_.isRealTime || !from_.empty() || !to_.empty())) {
      throw UsageError(
          "--codec copy leaves the pictures as they are: leave out effects, --size, --square, --reverse, --realtime, "
          "--from and --to");
    }
    if (!mayWrite(options_.output, isForced_)) return kFailure;
    auto movie = InputMovie::open(options_);
    if (!movie) return fail("{}", movie.error().description);
    const bool isPlain = options_.isCopy || (effects.effects().empty() && PlainTranscoding::serves(options_, *movie));
    const char* const kept = options_.keepsFields ? "--interlaced keep" : "--hdr keep";
    if (!isPlain && (options_.keepsHDR || options_.keepsFields)) {
      return fail("{} leaves the pictures as they are: leave out effects, --reverse, --realtime and turns", kept);
    }
    if (!isPlain && !hasEffects) effects = effects_.makeChain();
    sayWhatIsLeftOut(options_, *movie->asset);
    return diagnostics_.measure(json_, [&] {
      if (isPlain) {
        return PlainTranscoding(options_, *movie).run(json_, diagnostics_);
      }
      return Transcoding(options_, *movie, std::move(effects)).run(json_, diagnostics_);
    });
  }

 private:
  const char* scalingMode() const {
    if (scaling_ == "fit") return kVideoScalingModeResizeAspect;
    if (scaling_ == "fill") return kVideoScalingModeResizeAspectFill;
    if (scaling_ == "stretch") return kVideoScalingModeResize;
    throw UsageError(fmt::format("--scale {}: expected fit, fill or stretch", scaling_));
  }

  MediaTimeRange timeRange() const {
    MediaTimeRange range = MediaTimeRange::everything();
    if (!from_.empty()) range.start = parseTime(from_, "--from");
    if (to_.empty()) return range;
    const MediaTime end = parseTime(to_, "--to");
    if (!(end > range.start)) throw UsageError(fmt::format("--to {}: expected a time after --from", to_));
    range.duration = end - range.start;
    return range;
  }

  static bool isKept(const char* option, const std::string& mode, const char* usual) {
    if (mode == "keep" || mode == usual) return mode == "keep";
    throw UsageError(fmt::format("{} {}: expected {} or keep", option, mode, usual));
  }

  void checkCodec() const {
    if (options_.isCopy) return;
    const auto found = options_.videoSettings.find(kVideoCodecKey);
    const Value usual(AssetWriter::usualVideoCodec(options_.fileType));
    const bool isH264 =
        (found == options_.videoSettings.end() ? usual : found->second) == Value(std::string(kVideoCodecH264));
    if (options_.keepsHDR && isH264 && found != options_.videoSettings.end())
      throw UsageError("--hdr keep needs 10 bits: choose hevc, av1 or vp9 with --codec, not h264");
    if (options_.keepsFields && (!isH264 || options_.keepsHDR))
      throw UsageError("--interlaced keep needs h264, the only one that stores fields");
    if (options_.keepsFields && options_.size) throw UsageError("--interlaced keep keeps the size: leave out --size");
  }

  void checkSoundTrack() const {
    const std::string& track = options_.soundTrack;
    const bool isNumber =
        !track.empty() && track.size() < 4 && track[0] != '0' &&
        std::all_of(track.begin(), track.end(), [](char digit) { return digit >= '0' && digit <= '9'; });
    if (!track.empty() && track != "all" && !isNumber)
      throw UsageError(fmt::format("--audio-track {}: expected a number from 1, or all", track));
  }

  EffectOptions effects_;
  EncodingOptions encoding_;
  Diagnostics diagnostics_;
  TranscodingOptions options_;
  std::string size_;
  std::string scaling_ = "fit";
  std::string hdr_ = "map";
  std::string interlaced_ = "deinterlace";
  std::string from_;
  std::string to_;
  bool noAudio_ = false;
  bool isForced_ = false;
  bool json_ = false;
};

}  // namespace

std::unique_ptr<Command> makeTranscodeCommand(CLI::App& app) { return std::make_unique<TranscodeCommand>(app); }

}  // namespace tavrel::tool
