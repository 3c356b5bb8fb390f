#include "RecorderOptions.h"

#include <cmath>
#include <utility>

#include "MovieOptions.h"
#include "Report.h"

namespace tavrel::tool {

RecorderOptions::RecorderOptions(CLI::App& command, std::string defaultSize, Sound sound)
    : size_(std::move(defaultSize)) {
  command.add_option("--camera", camera_, "A name shown by `tavrel devices`, front, back or file:PATH")
      ->type_name("NAME")
      ->capture_default_str();
  if (sound == Sound::none) {
    microphone_ = "none";
  } else {
    command.add_option("--microphone", microphone_, "A name shown by `tavrel devices`, default, file:PATH or none")
        ->type_name("NAME")
        ->capture_default_str();
    command.add_option("--audio-offset", audioOffset_, "Move the sound, later if positive, besides what devices tell")
        ->type_name("MS")
        ->capture_default_str();
  }
  command.add_option("--size", size_, "Frame size in pixels")->type_name("WxH")->capture_default_str();
  command.add_option("--fps", framesPerSecond_, "Frames per second")->type_name("N")->capture_default_str();
  command.add_option("--zoom", zoom_, "Enlarge the middle of the picture so many times")
      ->type_name("N")
      ->capture_default_str();
}

void RecorderOptions::check() const {
  if (!(framesPerSecond_ >= 1 && framesPerSecond_ <= 240)) {
    throw UsageError(fmt::format("--fps {}: expected 1 to 240", framesPerSecond_));
  }
  if (!(zoom_ >= 1 && zoom_ <= 1000)) throw UsageError(fmt::format("--zoom {}: expected 1 or more", zoom_));
  if (!(std::abs(audioOffset_) <= 10'000)) {
    throw UsageError(fmt::format("--audio-offset {}: expected -10000 to 10000 milliseconds", audioOffset_));
  }
  (void)parsedMovieSize(size_);
}

TavrelRecorderConfiguration RecorderOptions::configuration(const TavrelCaptureEffectChain& effects) const {
  return {.camera = camera_,
          .microphone = microphone_ == "none" ? "" : microphone_,
          .size = parsedMovieSize(size_),
          .framesPerSecond = framesPerSecond_,
          .audioOffset = audioOffset_ / 1000,
          .effects = effects.effects()};
}

}  // namespace tavrel::tool
