#pragma once

#include <filesystem>
#include <memory>
#include <optional>
#include <string>

#include "Model/BeforePicture.h"
#include "Model/CameraForOthers.h"
#include "Model/DeviceList.h"
#include "Model/EffectList.h"
#include "Model/Measurement.h"
#include "Model/Messages.h"
#include "Model/RecordingMeter.h"
#include "Model/Settings.h"
#include "TavrelCaptureBase.h"

namespace tavrel::studio {

/// Seconds on a steady clock.
double steadySeconds();

/// The studio without its window: the recorder, what is set up, and what there is to say. Main thread, whose run loop
/// must run.
class Studio {
 public:
  explicit Studio(std::filesystem::path settingsFile);
  Studio(const Studio&) = delete;
  Studio& operator=(const Studio&) = delete;
  /// Completes a recording and saves the settings.
  ~Studio();

  /// Opens the devices that are set up, or else those that there are, and says so. Also after a change of what is fixed
  /// while a recorder lives: microphone, size and rate.
  void open();
  /// Completes a recording; returns when its file is whole.
  void close();

  // Devices.
  void chooseCamera(const std::string& identity);
  void chooseMicrophone(const std::string& identity);
  void setFormat(Size size, double framesPerSecond);
  void nextCamera();
  void toggleTorch();
  void setCameraForOthers(bool isOn);

  // Recording.
  void toggleRecording();
  void togglePause();
  void takeStill();
  bool isRecording() const { return recorder_ && recorder_->isWriting(); }
  bool isPaused() const { return isRecording() && recorder_->isPaused(); }
  /// What was recorded or taken last; empty before.
  const std::filesystem::path& latestFile() const { return latestFile_; }

  /// Adds a sticker at `centre` (pixels of the picture), or a lookup table, and selects it.
  void addFile(const std::filesystem::path& file, std::optional<Point> centre = {});

  /// To be called often: looks at what changes by itself.
  void update();

  /// nullptr when no camera can be opened.
  const std::shared_ptr<TavrelRecorder>& recorder() const { return recorder_; }
  Settings& settings() { return settings_; }
  EffectList& effects() { return effects_; }
  DeviceList& devices() { return devices_; }
  Messages& messages() { return messages_; }
  const RecordingMeter& meter() const { return meter_; }
  CameraForOthers& cameraForOthers() { return cameraForOthers_; }
  BeforePicture& before() { return before_; }
  Measurement& measurement() { return measurement_; }
  /// The sticker with handles on the picture; nullptr without one.
  const std::shared_ptr<StudioEffect>& selected() const { return selected_; }
  void select(std::shared_ptr<StudioEffect> effect) { selected_ = std::move(effect); }
  void removeSelected();

 private:
  Expected<void> openRecorder(const std::string& camera, const std::string& microphone);
  void applyEffects();
  void sayEvent(const TavrelRecorderEvent& event);
  void finished(const TavrelRecording& recording);
  void saveStill(const std::shared_ptr<Image>& image);
  bool refusesWhileRecording(const char* what);

  const std::filesystem::path settingsFile_;
  Settings settings_;
  Messages messages_;
  DeviceList devices_;
  EffectList effects_;
  RecordingMeter meter_;
  CameraForOthers cameraForOthers_{messages_};
  BeforePicture before_;
  Measurement measurement_{messages_};
  std::shared_ptr<TavrelRecorder> recorder_;
  std::shared_ptr<StudioEffect> selected_;
  std::filesystem::path latestFile_;
  int filesInWork_ = 0;
  /// Callbacks of what is still under way find out by it whether the studio is there.
  const std::shared_ptr<Studio*> alive_ = std::make_shared<Studio*>(this);
};

}  // namespace tavrel::studio
