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
#include "Platform/Foundation/Pimpl.h"
#include "Platform/Media/AssetWriter.h"

namespace tavrel {

class TavrelGPUImageContext;

/// Told how a recording ends, on the thread that ends it.
class TAVREL_API TavrelGPUImageMovieWriterDelegate {
 public:
  virtual ~TavrelGPUImageMovieWriterDelegate() = default;
  virtual void movieRecordingCompleted() {}
  virtual void movieRecordingFailedWithError(const Error&) {}
};

/// Key of the output settings, Boolean: the initial `encodingLiveVideo`; default true.
inline constexpr const char* kTavrelEncodingLiveVideoKey = "EncodingLiveVideo";
/// Key of the output settings, Boolean: false omits the video track.
inline constexpr const char* kTavrelHasVideoTrackKey = "hasVideoTrack";

/// Encodes the frames of a filter chain, and audio, into a movie file.
///
///     created ──startRecording──▶ recording ⇄ paused ──finishRecording──▶ finished
///                                     └────────────cancelRecording──────▶ cancelled (the file is removed)
///
/// Each frame is drawn, with the input rotation applied, into a BGRA pixel buffer of the output size and encoded with
/// its own time. The movie begins with its first frame or audio buffer, whichever comes first. Pauses are cut out of
/// both tracks. With `encodingLiveVideo`, producers never wait: what exceeds the encoder's queue is dropped, counted
/// and reported on the console. Without it the producer waits and nothing is dropped.
///
/// Create with `std::make_shared`. Any thread; but frames come on the video-processing queue, and audio from one thread
/// at a time. The file, the encoders and the writer's own GL context belong to the *writer queue*.
class TAVREL_API TavrelGPUImageMovieWriter : public TavrelGPUImageInput,
                                             public TavrelGPUImageAudioTarget,
                                             public std::enable_shared_from_this<TavrelGPUImageMovieWriter> {
 public:
  /// Appends data if it has any, and returns whether it did. Called on the writer's own queue.
  using InputReadyCallback = std::function<bool()>;
  /// Receives, and may change, the samples of each audio buffer: a pointer to their address, and their count. On the
  /// thread of `processAudioBuffer`.
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

  /// Starts recording, once per writer. Earlier frames and audio are discarded.
  void startRecording();
  /// Sets `transform`, for a rotated camera, then starts recording.
  void startRecordingInOrientation(const AffineTransform& orientationTransform);
  void finishRecording();
  /// Ends both tracks and completes the file. `handler` is called once, on the writer's own queue, when that is done or
  /// if there is nothing to finish; `error` tells whether it succeeded.
  void finishRecordingWithCompletionHandler(std::function<void()> handler);
  /// Ends the recording and removes the file, unless it is complete.
  void cancelRecording();

  /// Adds linear PCM or packets of one codec. Ignored if nullptr, without an audio track, while paused and unless
  /// recording.
  void processAudioBuffer(const std::shared_ptr<SampleBuffer>& audioBuffer) override;
  /// Starts pull mode: whenever a track has room, its ready callback is called until it returns false. Set the
  /// callbacks first.
  void enableSynchronizationCallbacks();

  bool hasAudioTrack() const override;
  /// Adds an audio track; call before recording starts. By default it is mono AAC at 64 kbit/s and the audio session's
  /// sample rate.
  void setHasAudioTrack(bool newValue) override { setHasAudioTrack(newValue, std::nullopt); }
  void setHasAudioTrack(bool hasAudioTrack, std::optional<Dictionary> audioSettings);
  bool shouldPassthroughAudio() const;
  /// True stores audio samples as they are, ignoring the track's settings. Set before `setHasAudioTrack`.
  void setShouldPassthroughAudio(bool newValue);
  bool shouldInvalidateAudioSampleWhenDone() const;
  /// Whether each audio buffer is invalidated after use, which frees its memory.
  void setShouldInvalidateAudioSampleWhenDone(bool newValue);
  bool encodingLiveVideo() const;
  /// Setting it while recording stops the program.
  void setEncodingLiveVideo(bool newValue);
  /// Called once when the source ends, on the thread that ends it.
  std::function<void()> completionBlock() const;
  void setCompletionBlock(std::function<void()> block);
  /// Called if the file cannot be created; as that is known on construction, check `error` instead.
  std::function<void(const Error&)> failureBlock() const;
  void setFailureBlock(std::function<void(const Error&)> block);
  std::shared_ptr<TavrelGPUImageMovieWriterDelegate> delegate() const;
  void setDelegate(const std::shared_ptr<TavrelGPUImageMovieWriterDelegate>& newDelegate);
  InputReadyCallback videoInputReadyCallback() const;
  /// May be replaced at any time.
  void setVideoInputReadyCallback(InputReadyCallback callback);
  InputReadyCallback audioInputReadyCallback() const;
  void setAudioInputReadyCallback(InputReadyCallback callback);
  AudioProcessingCallback audioProcessingCallback() const;
  void setAudioProcessingCallback(AudioProcessingCallback callback);
  bool isPaused() const;
  /// While paused, frames and audio are discarded; afterwards both tracks continue without a gap.
  void setPaused(bool newValue);
  bool isRecording() const;
  const std::shared_ptr<AssetWriter>& assetWriter() const;
  /// Duration recorded so far.
  MediaTime duration() const;
  /// How players rotate the frames; all zeros without a video track. Set before recording starts.
  AffineTransform transform() const;
  void setTransform(const AffineTransform& newValue);
  /// Set before recording starts.
  std::vector<MetadataItem> metaData() const;
  void setMetaData(std::vector<MetadataItem> newValue);
  const std::shared_ptr<TavrelGPUImageContext>& movieWriterContext() const;
  /// Why the file could not be created or written, or a track not be added.
  std::optional<Error> error() const;
  /// The encoded frame size: the requested one, rounded up to even numbers if the codec needs that.
  Size encodedSize() const;
  /// Frames that the file has taken; after the end, those in the file.
  std::uint64_t writtenVideoFrames() const;
  /// Frames and audio buffers that exceeded the encoder's queue, and frames older than the movie's beginning.
  std::uint64_t droppedVideoFrames() const;
  std::uint64_t droppedAudioBuffers() const;

  void newFrameReadyAtTime(MediaTime frameTime, Index atIndex) override;
  void setInputFramebuffer(std::shared_ptr<TavrelGPUImageFramebuffer> newInputFramebuffer, Index atIndex) override;
  void setInputRotation(TavrelGPUImageRotationMode newInputRotation, Index atIndex) override;
  Size maximumOutputSize() const override;
  /// The source has ended. Calls the completion block once or, without one, the delegate.
  void endProcessing() override;
  bool enabled() const override;
  void setEnabled(bool newValue);

 private:
  struct Implementation;
  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
