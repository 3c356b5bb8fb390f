// How a studio records movies and takes still pictures.
#include <fmt/format.h>

#include "Model/Folders.h"
#include "Model/Studio.h"

namespace tavrel::studio {
namespace {

/// Whether files can be made in `folder`; makes it if need be.
Expected<void> prepareFolder(const std::filesystem::path& folder) {
  std::error_code error;
  std::filesystem::create_directories(folder, error);
  if (!error) return {};
  return failure("posix", error.value(),
                 fmt::format("the folder {} cannot be made ({})", shortName(folder), error.message()));
}

}  // namespace

void Studio::toggleRecording() {
  if (!recorder_) return messages_.fault("There is no camera to record: connect one, or choose another one.");
  const double now = steadySeconds();
  if (isRecording()) {
    settings_.bytesPerSecond = meter_.bytesPerSecond();
    meter_.stop();
    ++filesInWork_;
    return recorder_->finishWritingWithCompletion([weak = std::weak_ptr(alive_)](const auto& recording) {
      const auto self = weak.lock();
      if (self && recording) (*self)->finished(*recording);
    });
  }
  const auto folder = settings_.movies();
  const auto file = newFile(folder, settings_.container, std::time(nullptr));
  const auto started =
      prepareFolder(folder).and_then([&] { return recorder_->startWriting(file, settings_.recordingOptions()); });
  if (!started) {
    return messages_.fault(fmt::format("Nothing is recorded: {}. Look at the folder and the codec in the settings.",
                                       started.error().description));
  }
  meter_.start(file, now);
}

void Studio::finished(const TavrelRecording& recording) {
  --filesInWork_;
  latestFile_ = recording.file;
  if (recording.error && recording.playableSeconds <= 0) {
    return messages_.fault(fmt::format("Nothing was recorded: {}.", recording.error->description));
  }
  if (recording.error) {
    return messages_.fault(fmt::format("The recording broke off: {}. {} is kept and plays for {}.",
                                       recording.error->description, shortName(recording.file),
                                       clockText(recording.playableSeconds)));
  }
  const std::string losses = lossText(recording.statistics);
  messages_.note(fmt::format("{} is recorded: {}{}{}.", shortName(recording.file), clockText(recording.seconds),
                             losses.empty() ? "" : "; ", losses),
                 recording.file);
}

void Studio::togglePause() {
  if (!isRecording()) return messages_.note("There is nothing to pause: no movie is recorded.");
  const bool isPaused = !recorder_->isPaused();
  isPaused ? recorder_->pause() : recorder_->resume();
  meter_.setPaused(isPaused, steadySeconds());
}

void Studio::takeStill() {
  if (!recorder_) return messages_.fault("There is no camera to take a picture with: connect one.");
  ++filesInWork_;
  recorder_->snapshotWithCompletion([weak = std::weak_ptr(alive_)](const auto& image, const auto& error) {
    const auto self = weak.lock();
    if (!self) return;
    if (image) return (*self)->saveStill(image);
    --(*self)->filesInWork_;
    (*self)->messages_.fault(
        fmt::format("No picture was taken: {}. Try again.", error ? error->description : "the camera gave none"));
  });
}

void Studio::saveStill(const std::shared_ptr<Image>& image) {
  const auto folder = settings_.stills();
  const auto file = newFile(folder, ".png", std::time(nullptr));
  DispatchQueue::global()->async([weak = std::weak_ptr(alive_), image, folder, file] {
    const auto written = prepareFolder(folder).and_then([&] { return ImageDestination::write(image, file); });
    DispatchQueue::main()->async([weak, written, file] {
      const auto self = weak.lock();
      if (!self) return;
      --(*self)->filesInWork_;
      if (!written) {
        return (*self)->messages_.fault(fmt::format(
            "The picture is not kept: {}. Choose another folder in the settings.", written.error().description));
      }
      (*self)->latestFile_ = file;
      (*self)->messages_.note(fmt::format("{} is taken.", shortName(file)), file);
    });
  });
}

}  // namespace tavrel::studio
