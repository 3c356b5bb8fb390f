#pragma once

#include <cstdint>
#include <filesystem>
#include <functional>
#include <memory>
#include <optional>
#include <string_view>
#include <vector>

#include "GPUImage/TavrelGPUImageAudioTarget.h"
#include "GPUImage/TavrelGPUImageInput.h"
#include "Platform/Foundation/Dictionary.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Media/AssetWriter.h"

namespace tavrel {

class TavrelGPUImageContext;

/// Hears how a recording ends. On the thread that ended it.
class TAVREL_API TavrelGPUImageMovieWriterDelegate {
 public:
  virtual ~TavrelGPUImageMovieWriterDelegate() = default;
  virtual void movieRecordingCompleted() {}
  virtual void movieRecordingFailedWithError(const Error&) {}
};

/// Key of the output settings, read as a truth value: real-time mode, see `encodingLiveVideo`.
inline constexpr const char* kTavrelEncodingLiveVideoKey = "EncodingLiveVideo";
/// Key of the output settings, read as a truth value: false makes a file without a video track.
inline constexpr const char* kTavrelHasVideoTrackKey = "hasVideoTrack";

/// The end of a filter chain that encodes frames and sound into a movie file.
///
///     created ──startRecording──▶ recording ⇄ paused ──finishRecording──▶ finished
///                                     └────────────cancelRecording──────▶ cancelled (the file is removed)
///
/// Each frame is drawn, turned by the input rotation, into a BGRA pixel buffer of the output size and encoded with its
/// own time. Movie time starts at the first time seen, of a frame or of sound. Pauses are cut out of both tracks. While
/// `encodingLiveVideo`, nothing ever waits: what the encoder has no room for is dropped and said on the console;
/// otherwise nothing is dropped and the producer waits. Made by `std::make_shared`. Control from any thread; frames
/// come on the video-processing queue, sound on any one thread; files, encoders and the writer's own GL context belong
/// to the *writer queue*.
class TAVREL_API TavrelGPUImageMovieWriter : public TavrelGPUImageInput,
                                             public TavrelGPUImageAudioTarget,
                                             public std::enable_shared_from_this<TavrelGPUImageMovieWriter> {
 public:
  /// Answers whether more data was handed to the writer. Called on a queue of the writer's own.
  using InputReadyCallback = std::function<bool()>;
  /// Sees, and may change, the samples of each sound buffer: a pointer to their address, and their count. On the thread
  /// of `processAudioBuffer`.
  using AudioProcessingCallback = std::function<void(void** samples, Index sampleCount)>;

  /// A QuickTime movie of H.264 in `newSize` (pixels, truncated). The file is replaced if it exists. When it cannot be
  /// created, or no GL context can be had, `error` says why and nothing will be recorded.
  TavrelGPUImageMovieWriter(const std::filesystem::path& newMovieURL, Size newSize);
  /// `newFileType` is one of the `kFileType…` values. Settings must hold `kVideoCodecKey`, `kVideoWidthKey` and
  /// `kVideoHeightKey`, else the program stops; they may hold further video settings and the two keys above.
  TavrelGPUImageMovieWriter(const std::filesystem::path& newMovieURL, Size newSize, std::string_view newFileType,
                            const std::optional<Dictionary>& outputSettings);
  TavrelGPUImageMovieWriter(const TavrelGPUImageMovieWriter&) = delete;
  TavrelGPUImageMovieWriter& operator=(const TavrelGPUImageMovieWriter&) = delete;
  ~TavrelGPUImageMovieWriter() override;

  void startRecording();
  /// The same for a camera that is held turned: players turn the picture by `orientationTransform`.
  void startRecordingInOrientation(const AffineTransform& orientationTransform);
  void finishRecording();
  /// Ends both tracks and completes the file; `handler` is called once, on a queue of the writer's, when that is done.
  void finishRecordingWithCompletionHandler(std::function<void()> handler);
  /// Ends the recording and removes the file, unless it is complete.
  void cancelRecording();

  /// Adds sound: linear PCM, or packets with `shouldPassthroughAudio`. Nothing happens while not recording or paused.
  void processAudioBuffer(const std::shared_ptr<SampleBuffer>& audioBuffer) override;
  /// Starts pull mode: whenever a track has room, its ready callback is asked for data, until it answers false.
  void enableSynchronizationCallbacks();

  bool hasAudioTrack() const override;
  /// Before recording starts. Sound is encoded as mono AAC at 64 kbit/s in the audio session's sample rate.
  void setHasAudioTrack(bool newValue) override { setHasAudioTrack(newValue, std::nullopt); }
  void setHasAudioTrack(bool hasAudioTrack, std::optional<Dictionary> audioSettings);
  bool shouldPassthroughAudio() const;
  /// Before `setHasAudioTrack`: the track takes samples as they come.
  void setShouldPassthroughAudio(bool newValue);
  bool shouldInvalidateAudioSampleWhenDone() const;
  /// Invalidates each sound buffer after use.
  void setShouldInvalidateAudioSampleWhenDone(bool newValue);
  bool encodingLiveVideo() const;
  /// While recording the program stops.
  void setEncodingLiveVideo(bool newValue);
  std::function<void()> completionBlock() const;
  void setCompletionBlock(std::function<void()> block);
  std::function<void(const Error&)> failureBlock() const;
  void setFailureBlock(std::function<void(const Error&)> block);
  std::shared_ptr<TavrelGPUImageMovieWriterDelegate> delegate() const;
  void setDelegate(const std::shared_ptr<TavrelGPUImageMovieWriterDelegate>& newDelegate);
  InputReadyCallback videoInputReadyCallback() const;
  /// In force from the next question on, also while the old one is being asked.
  void setVideoInputReadyCallback(InputReadyCallback callback);
  InputReadyCallback audioInputReadyCallback() const;
  void setAudioInputReadyCallback(InputReadyCallback callback);
  AudioProcessingCallback audioProcessingCallback() const;
  void setAudioProcessingCallback(AudioProcessingCallback callback);
  bool isPaused() const;
  /// While paused, frames and sound are discarded; afterwards both tracks go on where they left off.
  void setPaused(bool newValue);
  bool isRecording() const;
  const std::shared_ptr<AssetWriter>& assetWriter() const;
  /// How much has been recorded.
  MediaTime duration() const;
  /// All zeros without a video track.
  AffineTransform transform() const;
  void setTransform(const AffineTransform& newValue);
  std::vector<MetadataItem> metaData() const;
  void setMetaData(std::vector<MetadataItem> newValue);
  const std::shared_ptr<TavrelGPUImageContext>& movieWriterContext() const;
  /// Why the file could not be created or written; nothing while all is well.
  std::optional<Error> error() const;
  /// The size of the pictures in the file: the asked one, rounded up where the codec wants even numbers.
  Size encodedSize() const;
  /// Frames and sound buffers that a live recording had no room for, and frames of a time before the movie's start.
  std::uint64_t droppedVideoFrames() const;
  std::uint64_t droppedAudioBuffers() const;

  void newFrameReadyAtTime(MediaTime frameTime, Index atIndex) override;
  void setInputFramebuffer(std::shared_ptr<TavrelGPUImageFramebuffer> newInputFramebuffer, Index atIndex) override;
  Index nextAvailableTextureIndex() const override { return 0; }
  /// The output size never follows the input.
  void setInputSize(Size, Index) override {}
  void setInputRotation(TavrelGPUImageRotationMode newInputRotation, Index atIndex) override;
  Size maximumOutputSize() const override;
  /// The source has ended: calls the completion block, once, or else the delegate.
  void endProcessing() override;
  bool shouldIgnoreUpdatesToThisTarget() const override { return false; }
  bool enabled() const override;
  void setEnabled(bool newValue);
  bool wantsMonochromeInput() const override { return false; }
  void setCurrentlyReceivingMonochromeInput(bool) override {}

 private:
  struct Implementation;
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavrel
