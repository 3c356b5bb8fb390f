#include "Model/Studio.h"

#include <fmt/format.h>

#include <algorithm>
#include <chrono>
#include <utility>

#include "Model/Folders.h"

namespace tavrel::studio {
namespace {

std::string nameOf(const std::string& identity) {
  const auto device = CaptureDevice::deviceWithUniqueID(identity);
  return device ? device->localizedName() : identity;
}

}  // namespace

double steadySeconds() {
  return std::chrono::duration<double>(std::chrono::steady_clock::now().time_since_epoch()).count();
}

Studio::Studio(std::filesystem::path settingsFile) : settingsFile_(std::move(settingsFile)) {
  auto loaded = Settings::load(settingsFile_);
  if (loaded) {
    settings_ = std::move(*loaded);
  } else {
    std::error_code ignored;
    std::filesystem::rename(settingsFile_, settingsFile_.string() + ".damaged", ignored);
    messages_.fault(fmt::format("{}. The usual settings are used, and the old file is kept beside it as \"damaged\".",
                                loaded.error().description));
  }
  effects_.setFrameSize(settings_.size);
  if (!settings_.effects.is_null()) {
    effects_.restore(settings_.effects, [this](const std::string& text) { messages_.fault(text); });
  }
  effects_.setChangeHandler([this] { applyEffects(); });
}

Studio::~Studio() {
  close();
  settings_.effects = effects_.json();
  if (const auto saved = settings_.save(settingsFile_); !saved) {
    ConsoleLog::write("The settings are not kept: {}", saved.error().description);
  }
}

Expected<void> Studio::openRecorder(const std::string& camera, const std::string& microphone) {
  TavrelRecorderConfiguration wanted;
  wanted.camera = camera.empty() ? "front" : camera;
  wanted.microphone = microphone;
  wanted.size = settings_.size;
  wanted.framesPerSecond = settings_.framesPerSecond;
  auto opened = TavrelRecorder::create(wanted);
  if (!opened) return tl::unexpected(opened.error());
  recorder_ = std::move(*opened);
  return {};
}

void Studio::open() {
  if (recorder_) recorder_->stop();
  recorder_.reset();
  auto opened = openRecorder(settings_.camera, settings_.microphone);
  if (!opened) {
    const std::string reason = opened.error().description;
    opened = openRecorder({}, "default");
    if (!opened) opened = openRecorder({}, "");
    if (opened) messages_.fault(fmt::format("{}. Another device is used; choose one in the list.", reason));
  }
  if (!opened) {
    return messages_.fault(
        fmt::format("There is no picture: {}. Connect a camera, or choose another one.", opened.error().description));
  }
  const auto& camera = recorder_->camera();
  camera->setMirrorFrontPreview(false);  // the window mirrors, and knows where a click is
  camera->setMirrorBackPreview(false);
  camera->removeObservers();  // a window that is put away records on
  effects_.setFrameSize(settings_.size);
  applyEffects();
  recorder_->setEventHandler([this](const TavrelRecorderEvent& event) { sayEvent(event); });
  recorder_->setCameraOutput(cameraForOthers_.output());
  recorder_->startWithCompletion([weak = std::weak_ptr(alive_)](const std::optional<Error>& error) {
    const auto self = weak.lock();
    if (self && error) {
      (*self)->messages_.fault(fmt::format("The devices do not start: {}. Choose other ones.", error->description));
    }
  });
  if (CaptureDevice::hasStandIns()) {
    messages_.note("No camera is connected: a drawn one is shown. Connect a camera, and it is in the list.");
  }
}

void Studio::close() {
  if (!recorder_) return;
  if (isRecording()) toggleRecording();
  RunLoop::main().runUntil([this] { return filesInWork_ == 0; }, std::chrono::minutes(5));
  recorder_->stop();
  recorder_.reset();
}

void Studio::applyEffects() {
  // What is no longer in the list cannot be held.
  if (selected_ && std::ranges::find(effects_.all(), selected_) == effects_.all().end()) {
    selected_.reset();
  }
  if (!recorder_) return;
  auto effects = effects_.captureEffects();
  effects.insert(effects.begin(), before_.effect());
  recorder_->setEffects(std::move(effects));
}

bool Studio::refusesWhileRecording(const char* what) {
  if (isRecording()) messages_.fault(fmt::format("{} cannot change while a movie is recorded: stop it first.", what));
  return isRecording();
}

void Studio::chooseCamera(const std::string& identity) {
  settings_.camera = identity;
  if (!recorder_) return open();
  recorder_->camera()->setPreferredDeviceID(identity);
  if (recorder_->camera()->deviceID() == identity) return;
  messages_.fault(fmt::format("{} cannot be opened: another program may use it. {} stays.", nameOf(identity),
                              nameOf(recorder_->camera()->deviceID())));
}

void Studio::chooseMicrophone(const std::string& identity) {
  if (identity == settings_.microphone || refusesWhileRecording("The microphone")) return;
  settings_.microphone = identity;
  open();
}

void Studio::setFormat(Size size, double framesPerSecond) {
  if (refusesWhileRecording("Size and rate")) return;
  settings_.size = size;
  settings_.framesPerSecond = framesPerSecond;
  if (cameraForOthers_.isOn()) cameraForOthers_.start(cameraForOthers_.name(), size, framesPerSecond);
  open();
}

void Studio::nextCamera() {
  const auto& all = devices_.cameras();
  if (all.size() < 2 || !recorder_) return messages_.note("There is no other camera.");
  const auto current = std::ranges::find(all, recorder_->camera()->deviceID(), &DeviceChoice::identity);
  const bool isLast = current == all.end() || std::next(current) == all.end();
  chooseCamera((isLast ? all.begin() : std::next(current))->identity);
}

void Studio::toggleTorch() {
  if (!recorder_) return;
  const auto& camera = recorder_->camera();
  const bool isOn = camera->preferredTorchMode() == CaptureTorchMode::on;
  camera->setPreferredTorchMode(isOn ? CaptureTorchMode::off : CaptureTorchMode::on);
}

void Studio::setCameraForOthers(bool isOn) {
  if (isOn) {
    cameraForOthers_.start(settings_.cameraName, settings_.size, settings_.framesPerSecond);
  } else {
    cameraForOthers_.stop();
  }
  if (recorder_) recorder_->setCameraOutput(cameraForOthers_.output());
}

void Studio::addFile(const std::filesystem::path& file, std::optional<Point> centre) {
  const auto extension = file.extension();
  if (extension == ".cube" || extension == ".3dl" || extension == ".csp") {
    auto table = openTable(file);
    if (!table) return messages_.fault(fmt::format("{}.", table.error().description));
    return effects_.add(std::move(*table));
  }
  const auto sticker = StickerEffect::open(file);
  if (!sticker) {
    return messages_.fault(fmt::format("{}. Pictures, animations and tables (.cube, .3dl, .csp) can be added.",
                                       sticker.error().description));
  }
  const Size frame = effects_.frameSize();
  (*sticker)->setPlace(
      placeForDrop((*sticker)->pictureSize(), frame, centre.value_or(Point{frame.width / 2, frame.height / 2})));
  effects_.add(*sticker);
  selected_ = *sticker;
}

void Studio::removeSelected() {
  const auto place = std::ranges::find(effects_.all(), selected_);
  if (selected_ && place != effects_.all().end()) {
    effects_.remove(static_cast<std::size_t>(place - effects_.all().begin()));
  }
}

void Studio::update() {
  const double now = steadySeconds();
  const double expected = settings_.bytesPerSecond > 0
                              ? settings_.bytesPerSecond
                              : usualBytesPerSecond(settings_.size, settings_.framesPerSecond, settings_.quality);
  meter_.look(settings_.movies(), expected, now);
  measurement_.update(now);
}

void Studio::sayEvent(const TavrelRecorderEvent& event) {
  using Kind = TavrelRecorderEvent::Kind;
  const std::string reason = event.error ? event.error->description : "it does not answer";
  switch (event.kind) {
    case Kind::cameraLost:
      return messages_.fault(fmt::format("The camera is lost: {}. Connect it again, or choose another one{}.", reason,
                                         isRecording() ? "; the movie goes on with sound" : ""));
    case Kind::microphoneLost:
      return messages_.fault(fmt::format("The microphone is lost: {}. Connect it again{}.", reason,
                                         isRecording() ? "; the movie goes on without sound" : ""));
    case Kind::cameraBack: messages_.dismiss(); return messages_.note("The camera is back.");
    case Kind::microphoneBack: messages_.dismiss(); return messages_.note("The microphone is back.");
    case Kind::writingBrokeOff:
      if (isRecording()) toggleRecording();  // what there is becomes a whole file, and it is said why
      return;
    case Kind::limitReached: return;
  }
}

}  // namespace tavrel::studio
