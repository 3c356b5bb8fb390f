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

/// Is told how a recording ends, on the thread that ends it.
class TAVREL_API TavrelGPUImageMovieWriterDelegate {
 public:
  virtual ~TavrelGPUImageMovieWriterDelegate() = default;
  virtual void movieRecordingCompleted() {}
  virtual void movieRecordingFailedWithError(const Error&) {}
};

/// Key of the output settings, a truth value: whether `encodingLiveVideo` is on at first; true when absent.
inline constexpr const char* kTavrelEncodingLiveVideoKey = "EncodingLiveVideo";
/// Key of the output settings, a truth value: false makes a file without a video track.
inline constexpr const char* kTavrelHasVideoTrackKey = "hasVideoTrack";

/// The end of a filter chain that encodes frames and sound into a movie file.
///
///     created ──startRecording──▶ recording ⇄ paused ──finishRecording──▶ finished
///                                     └────────────cancelRecording──────▶ cancelled (the file is removed)
///
/// Each frame is drawn, turned by the input rotation, into a BGRA pixel buffer of the output size and encoded with its
/// own time. The movie begins at the time of whichever comes first, a frame or sound. Pauses are cut out of both
/// tracks. While `encodingLiveVideo` is on, nothing ever waits: what the encoder has no room for is dropped, counted
/// and reported on the console. Otherwise the producer waits and nothing is dropped.
///
/// Made by `std::make_shared`. Any thread may call the members, but frames come on the video-processing queue and sound
/// from one thread at a time. The file, the encoders and the writer's own GL context belong to the *writer queue*.
class TAVREL_API TavrelGPUImageMovieWriter : public TavrelGPUImageInput,
                                             public TavrelGPUImageAudioTarget,
                                             public std::enable_shared_from_this<TavrelGPUImageMovieWriter> {
 public:
  /// Answers whether more data was handed to the writer. Called on a queue of the writer's own.
  using InputReadyCallback = std::function<bool()>;
  /// Sees, and may change, the samples of each sound buffer: a pointer to their address, and their count. On the thread
  /// of `processAudioBuffer`.
  using AudioProcessingCallback = std::function<void(void** samples, Index sampleCount)>;

  /// A QuickTime movie of H.264 in `newSize` (pixels, truncated). A file that exists is replaced, as `AssetWriter`
  /// does. When it cannot be created or take a track, or no GL context can be had, `error` says why and nothing will be
  /// recorded.
  TavrelGPUImageMovieWriter(const std::filesystem::path& newMovieURL, Size newSize);
  /// `newFileType` is one of the `kFileType…` values. Settings must hold `kVideoCodecKey`, `kVideoWidthKey` and
  /// `kVideoHeightKey`, else the program stops; they may hold further video settings and the two keys above.
  TavrelGPUImageMovieWriter(const std::filesystem::path& newMovieURL, Size newSize, std::string_view newFileType,
                            const std::optional<Dictionary>& outputSettings);
  TavrelGPUImageMovieWriter(const TavrelGPUImageMovieWriter&) = delete;
  TavrelGPUImageMovieWriter& operator=(const TavrelGPUImageMovieWriter&) = delete;
  ~TavrelGPUImageMovieWriter() override;

  /// Once for each writer. What comes before it is discarded.
  void startRecording();
  /// Sets `transform` first, for a camera that is held turned.
  void startRecordingInOrientation(const AffineTransform& orientationTransform);
  void finishRecording();
  /// Ends both tracks and completes the file. `handler` is called once, on a queue of the writer's own, when that is
  /// done or when there is nothing to finish; whether it succeeded, `error` says.
  void finishRecordingWithCompletionHandler(std::function<void()> handler);
  /// Ends the recording and removes the file, unless it is complete.
  void cancelRecording();

  /// Adds sound: linear PCM or packets of one codec. It is ignored unless recording, while paused, without an audio
  /// track, and when it is nullptr.
  void processAudioBuffer(const std::shared_ptr<SampleBuffer>& audioBuffer) override;
  /// Starts pull mode: whenever a track has room, its ready callback is asked for data, until it answers false. For the
  /// callbacks that are set by then.
  void enableSynchronizationCallbacks();

  bool hasAudioTrack() const override;
  /// Adds a track for sound, before recording starts. Without settings sound is encoded as mono AAC at 64 kbit/s and
  /// the sample rate of the audio session.
  void setHasAudioTrack(bool newValue) override { setHasAudioTrack(newValue, std::nullopt); }
  void setHasAudioTrack(bool hasAudioTrack, std::optional<Dictionary> audioSettings);
  bool shouldPassthroughAudio() const;
  /// Before `setHasAudioTrack`: the track then stores samples as they come, whatever its settings.
  void setShouldPassthroughAudio(bool newValue);
  bool shouldInvalidateAudioSampleWhenDone() const;
  /// Whether each sound buffer is invalidated after use, so that its memory is free for the next one.
  void setShouldInvalidateAudioSampleWhenDone(bool newValue);
  bool encodingLiveVideo() const;
  /// Setting it while recording stops the program.
  void setEncodingLiveVideo(bool newValue);
  /// Called once when the source ends, on the thread that ends it.
  std::function<void()> completionBlock() const;
  void setCompletionBlock(std::function<void()> block);
  /// Called when the file cannot be created. That is known before this can be set: see `error`.
  std::function<void(const Error&)> failureBlock() const;
  void setFailureBlock(std::function<void(const Error&)> block);
  std::shared_ptr<TavrelGPUImageMovieWriterDelegate> delegate() const;
  void setDelegate(const std::shared_ptr<TavrelGPUImageMovieWriterDelegate>& newDelegate);
  InputReadyCallback videoInputReadyCallback() const;
  /// May be replaced at any time: the new one is asked from the next question on.
  void setVideoInputReadyCallback(InputReadyCallback callback);
  InputReadyCallback audioInputReadyCallback() const;
  void setAudioInputReadyCallback(InputReadyCallback callback);
  AudioProcessingCallback audioProcessingCallback() const;
  void setAudioProcessingCallback(AudioProcessingCallback callback);
  bool isPaused() const;
  /// While paused, frames and sound are discarded. Afterwards both tracks go on where they left off.
  void setPaused(bool newValue);
  bool isRecording() const;
  const std::shared_ptr<AssetWriter>& assetWriter() const;
  /// How much has been recorded.
  MediaTime duration() const;
  /// How players turn the picture; all zeros without a video track. Before recording starts.
  AffineTransform transform() const;
  void setTransform(const AffineTransform& newValue);
  /// Before recording starts.
  std::vector<MetadataItem> metaData() const;
  void setMetaData(std::vector<MetadataItem> newValue);
  const std::shared_ptr<TavrelGPUImageContext>& movieWriterContext() const;
  /// Why the file could not be created or written, or cannot take a track; nothing while all is well.
  std::optional<Error> error() const;
  /// The size of the pictures in the file: the asked one, rounded up where the codec wants even numbers.
  Size encodedSize() const;
  /// Frames that the file has taken; when it has ended, those that are in it.
  std::uint64_t writtenVideoFrames() const;
  /// How many frames and sound buffers there was no room for, and frames of a time before the movie's beginning.
  std::uint64_t droppedVideoFrames() const;
  std::uint64_t droppedAudioBuffers() const;

  void newFrameReadyAtTime(MediaTime frameTime, Index atIndex) override;
  void setInputFramebuffer(std::shared_ptr<TavrelGPUImageFramebuffer> newInputFramebuffer, Index atIndex) override;
  Index nextAvailableTextureIndex() const override { return 0; }
  /// The output size never follows the input.
  void setInputSize(Size, Index) override {}
  void setInputRotation(TavrelGPUImageRotationMode newInputRotation, Index atIndex) override;
  Size maximumOutputSize() const override;
  /// The source has ended: calls the completion block, if it was not called before, or without one the delegate.
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
