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
class TavrelGPUImageView;
class TavrelMicrophone;

/// The codes of errors in the domain "recorder" (`Error::code`).
enum class TavrelRecorderErrorCode : std::int64_t {
  cameraUnavailable = -1,  ///< there is such a camera, and the session cannot take it
  cameraRefused = -2,      ///< the system refuses access to the camera
  microphoneRefused = -3,  ///< the system refuses access to the microphone
  unknownFileType = -4,    ///< the name of the file ends in none of .mov, .mp4 and .mkv
  alreadyWriting = -5,     ///< a movie is being written: finish it first
  notWriting = -6          ///< there is no movie to finish
};

constexpr const char* errorDomain(TavrelRecorderErrorCode) { return "recorder"; }

/// What happens to a recorder while nobody asks it anything.
struct TavrelRecorderEvent {
  enum class Kind {
    cameraLost,       ///< it failed or was unplugged; sound goes on
    cameraBack,       ///< it delivers again
    microphoneLost,   ///< it failed or was unplugged; pictures go on
    microphoneBack,   ///< it delivers again
    writingBrokeOff,  ///< the disk is full, or the encoder failed; what was recorded plays
    limitReached      ///< the first frame came that is beyond the recording's `durationLimit`
  };
  Kind kind;
  /// Why, for what is lost and what broke off.
  std::optional<Error> error;
};

/// Records a camera and a microphone, through effects, into movie files, one after the other.
///
///     camera ▶ effects ┬▶ previewView
///                      └▶ movie file
///     microphone ────────▶ movie file
///
///     devices:  stopped ──startWithCompletion──▶ running ──stop──▶ stopped ──▶ …
///     file:     none ──startWriting──▶ writing ⇄ paused ──finishWritingWithCompletion──▶ none ──▶ …
///                                         └─ disk full ─▶ broken off ──finishWritingWithCompletion──▶ none
///
/// Devices and file are independent: a file may be started before the devices and finished after they stopped. A movie
/// begins with the first frame that comes; sound from before it is left out, and sound stands where it was heard.
/// Frames whose proportions are not the movie's lose what is too much at their edges. While the camera is away, sound
/// goes on, and the other way round.
///
/// Members may be called from any thread. Everything that is handed to the recorder to be called, but for the frame
/// handler, is called on the main thread, which must run `RunLoop::main()`.
class TAVREL_API TavrelRecorder {
 public:
  using StartCompletion = std::function<void(const std::optional<Error>& error)>;
  using FinishCompletion = std::function<void(const Expected<TavrelRecording>& recording)>;
  using SnapshotCompletion = std::function<void(std::shared_ptr<Image> image, std::optional<Error> error)>;
  using EventHandler = std::function<void(const TavrelRecorderEvent& event)>;
  using FrameHandler = std::function<void(double seconds)>;

  /// Opens the devices without starting them. Fails with the errors of `CaptureDevice::deviceNamed`, of
  /// `TavrelCamera::create` and of `TavrelMicrophone::create`, and with `cameraUnavailable`.
  static Expected<std::shared_ptr<TavrelRecorder>> create(const TavrelRecorderConfiguration& configuration);
  TavrelRecorder(const TavrelRecorder&) = delete;
  TavrelRecorder& operator=(const TavrelRecorder&) = delete;
  /// Stops, and completes a file that is being written.
  ~TavrelRecorder();

  /// The camera, with its controls. Its delegate is the recorder's.
  const std::shared_ptr<TavrelCamera>& camera() const;
  /// The microphone, with its level and its mute switch; nullptr without one. Its delegate is the recorder's.
  const std::shared_ptr<TavrelMicrophone>& microphone() const;
  /// Shows what is recorded; the application places it. Main thread.
  const std::shared_ptr<TavrelGPUImageView>& previewView() const;
  /// Exchanges the effects.
  void setEffects(std::vector<std::shared_ptr<TavrelCaptureEffect>> effects);

  /// Starts the microphone and then the camera. `completion` is called once, with no error when both run. Errors are
  /// those of the audio session, `cameraRefused` and `microphoneRefused`; nothing runs then.
  void startWithCompletion(StartCompletion completion);
  /// Returns when both devices have stopped and the last frame was handed on.
  void stop();

  /// Everything from the next frame on goes into `file`, which is replaced if it exists. Fails with `unknownFileType`,
  /// `alreadyWriting`, and the platform's error when the file cannot be created.
  Expected<void> startWriting(const std::filesystem::path& file, const TavrelRecordingOptions& options = {});
  /// Ends the movie and completes the file, also one that broke off. `completion` is called once, when that is done;
  /// with `notWriting` when there was nothing to finish. The next file may be started at once.
  void finishWritingWithCompletion(FinishCompletion completion);
  /// Ends the movie and removes the file.
  void cancelWriting();
  /// From `startWriting` to the call that finishes or cancels.
  bool isWriting() const;

  /// Leaves everything out until `resume`; the movie goes on without a gap. Nothing happens when no movie is written.
  void pause();
  void resume();
  bool isPaused() const;

  /// A still picture through the same effects. `completion` is called once, with a picture or an error.
  void snapshotWithCompletion(SnapshotCompletion completion);

  /// Of the movie that is being written; all 0 when there is none.
  TavrelRecordingStatistics statistics() const;
  /// Hears what breaks and what heals in the background.
  void setEventHandler(EventHandler handler);
  /// Called before each frame that is about to be written, with its time in seconds since the movie's first frame,
  /// pauses included; what it does acts on that frame already. On the video-processing queue.
  void setFrameHandler(FrameHandler handler);

 private:
  struct Implementation;
  explicit TavrelRecorder(std::shared_ptr<Implementation> implementation);

  std::shared_ptr<Implementation> implementation_;
};

}  // namespace tavrel
