#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>

#include "Capture/TavrelRecorderConfiguration.h"
#include "Capture/TavrelRecording.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/ErrorCode.h"
#include "Platform/Foundation/Export.h"

namespace tavrel {

class Image;
class TavrelCamera;
class TavrelGPUImageCameraOutput;
class TavrelGPUImageView;
class TavrelMicrophone;

/// Codes of errors in the domain "recorder".
enum class TavrelRecorderErrorCode : std::int64_t {
  cameraUnavailable = -1,  ///< the camera exists but cannot be opened
  cameraRefused = -2,      ///< the system refuses access to the camera
  microphoneRefused = -3,  ///< the system refuses access to the microphone
  unknownFileType = -4,    ///< the file's extension is not .mov, .mp4, .mkv or .webm
  alreadyWriting = -5,     ///< a movie is being written; finish it first
  notWriting = -6          ///< no movie is being written
};

constexpr const char* errorDomain(TavrelRecorderErrorCode) { return "recorder"; }

/// An event in the background.
struct TavrelRecorderEvent {
  enum class Kind {
    cameraLost,       ///< it failed or was unplugged; the recording continues with sound
    cameraBack,       ///< it delivers again
    microphoneLost,   ///< it failed or was unplugged; the recording continues with video
    microphoneBack,   ///< it delivers again
    writingBrokeOff,  ///< the disk is full or the encoder failed; what was recorded plays
    limitReached      ///< frames and sound beyond the recording's `durationLimit` arrive
  };
  Kind kind;
  /// Why a device was lost or writing broke off.
  std::optional<Error> error;
};

/// Records a camera and a microphone, through effects, into one movie file after another.
///
///     camera ▶ effects ┬▶ previewView
///                      ├▶ camera for other programs
///                      └▶ movie file
///     microphone ────────▶ movie file
///
///     devices:  stopped ──startWithCompletion──▶ running ──stop──▶ stopped ──▶ …
///     file:     none ──startWriting──▶ writing ⇄ paused ──finishWritingWithCompletion──▶ none ──▶ …
///                                         └─ disk full ─▶ broken off ──finishWritingWithCompletion──▶ none
///
/// Devices and file are independent: a file may be started before the devices and finished after they have stopped. A
/// movie begins with its first frame; earlier sound is left out, and later sound is placed at the time it was heard.
/// Frames of other proportions than the movie's, or the camera output's, are cropped. If the camera is lost, sound
/// continues, and vice versa.
///
/// Any thread. Completions and the event handler are called on the main thread, which must run `RunLoop::main()`.
class TAVREL_API TavrelRecorder {
 public:
  using StartCompletion = std::function<void(const std::optional<Error>& error)>;
  using FinishCompletion = std::function<void(const Expected<TavrelRecording>& recording)>;
  using SnapshotCompletion = std::function<void(std::shared_ptr<Image> image, std::optional<Error> error)>;
  using EventHandler = std::function<void(const TavrelRecorderEvent& event)>;
  using FrameHandler = std::function<void(double seconds)>;

  /// Opens the devices without starting them. Fails with `cameraUnavailable`, and as `CaptureDevice::deviceNamed`,
  /// `TavrelCamera::create` and `TavrelMicrophone::create` do.
  static Expected<std::shared_ptr<TavrelRecorder>> create(const TavrelRecorderConfiguration& configuration);
  TavrelRecorder(const TavrelRecorder&) = delete;
  TavrelRecorder& operator=(const TavrelRecorder&) = delete;
  /// Stops the devices and completes a file that is being written.
  ~TavrelRecorder();

  /// For its controls; the recorder is its delegate.
  const std::shared_ptr<TavrelCamera>& camera() const;
  /// For its level and mute switch; the recorder is its delegate. nullptr without one.
  const std::shared_ptr<TavrelMicrophone>& microphone() const;
  /// Shows what is recorded, for the application to place. Main thread.
  const std::shared_ptr<TavrelGPUImageView>& previewView() const;
  void setEffects(std::vector<std::shared_ptr<TavrelCaptureEffect>> effects);
  void setCameraOutput(std::shared_ptr<TavrelGPUImageCameraOutput> output);

  /// Starts the microphone, then the camera. `completion` is called once: without an error if both run, else with
  /// `cameraRefused`, `microphoneRefused` or the audio session's error, and neither runs.
  void startWithCompletion(StartCompletion completion);
  /// Returns when both devices have stopped and the last frame is processed.
  void stop();

  /// Records into `file`, replacing an existing one, from the next frame on. Fails with `unknownFileType`,
  /// `alreadyWriting`, and the platform's error if the file cannot be created.
  Expected<void> startWriting(const std::filesystem::path& file, const TavrelRecordingOptions& options = {});
  /// Ends the movie and completes the file, even one that broke off. `completion` is called once, when that is done;
  /// with `notWriting` if no movie was being written. The next file may be started at once.
  void finishWritingWithCompletion(FinishCompletion completion);
  /// Ends the movie and removes the file.
  void cancelWriting();
  /// Until the call that finishes or cancels.
  bool isWriting() const;

  /// Until `resume`, a movie being written has no frames and sound, and no gap; a camera output shows its last picture.
  void pause();
  void resume();
  bool isPaused() const;

  /// Takes a still picture through the same effects. `completion` is called once, with an image or an error.
  void snapshotWithCompletion(SnapshotCompletion completion);

  /// Statistics of the movie being written; all 0 without one.
  TavrelRecordingStatistics statistics() const;
  void setEventHandler(EventHandler handler);
  /// Called before each frame is written, with its time in seconds since the movie's first frame, pauses included.
  /// Calls that it makes (`pause`, say) apply to that frame already. On the video-processing queue.
  void setFrameHandler(FrameHandler handler);

 private:
  struct Implementation;
  explicit TavrelRecorder(std::shared_ptr<Implementation> implementation);
  std::shared_ptr<Implementation> implementation_;
};

}  // namespace tavrel
