#pragma once

#include <GLES2/gl2.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "GPUImage/TavrelGPUImageAudioTarget.h"
#include "GPUImage/TavrelGPUImageContext.h"
#include "GPUImage/TavrelGPUImageFramebuffer.h"
#include "GPUImage/TavrelGPUImageInput.h"
#include "Platform/Dispatch/DispatchSemaphore.h"
#include "Platform/Foundation/Dictionary.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Media/AssetWriter.h"
#include "Platform/Media/AssetWriterInput.h"
#include "Platform/Media/AssetWriterInputPixelBufferAdaptor.h"
#include "Platform/Media/SampleBuffer.h"
#include "Platform/Tracing/Tracer.h"

namespace tavrel {

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

  bool hasAudioTrack() const override { return hasAudioTrack_; }
  /// Before recording starts. Sound is encoded as mono AAC at 64 kbit/s in the audio session's sample rate.
  void setHasAudioTrack(bool newValue) override { setHasAudioTrack(newValue, std::nullopt); }
  void setHasAudioTrack(bool hasAudioTrack, std::optional<Dictionary> audioSettings);
  bool shouldPassthroughAudio() const { return shouldPassthroughAudio_; }
  /// Before `setHasAudioTrack`: the track takes samples as they come.
  void setShouldPassthroughAudio(bool newValue) { shouldPassthroughAudio_ = newValue; }
  bool shouldInvalidateAudioSampleWhenDone() const { return shouldInvalidateAudioSampleWhenDone_; }
  void setShouldInvalidateAudioSampleWhenDone(bool newValue) { shouldInvalidateAudioSampleWhenDone_ = newValue; }
  bool encodingLiveVideo() const { return encodingLiveVideo_; }
  /// While recording the program stops.
  void setEncodingLiveVideo(bool newValue);
  void setCompletionBlock(std::function<void()> block) { completionBlock_ = std::move(block); }
  void setFailureBlock(std::function<void(const Error&)> block) { failureBlock_ = std::move(block); }
  std::shared_ptr<TavrelGPUImageMovieWriterDelegate> delegate() const { return delegate_.lock(); }
  void setDelegate(const std::shared_ptr<TavrelGPUImageMovieWriterDelegate>& newDelegate) { delegate_ = newDelegate; }
  /// In force from the next question on, also while the old one is being asked.
  void setVideoInputReadyCallback(InputReadyCallback callback) { videoInputReady_.set(std::move(callback)); }
  void setAudioInputReadyCallback(InputReadyCallback callback) { audioInputReady_.set(std::move(callback)); }
  void setAudioProcessingCallback(AudioProcessingCallback callback) { audioProcessingCallback_ = std::move(callback); }
  bool isPaused() const { return paused_; }
  /// While paused, frames and sound are discarded; afterwards both tracks go on where they left off.
  void setPaused(bool newValue);
  bool isRecording() const { return isRecording_; }
  const std::shared_ptr<AssetWriter>& assetWriter() const { return assetWriter_; }
  /// How much has been recorded.
  MediaTime duration() const;
  /// All zeros without a video track.
  AffineTransform transform() const;
  void setTransform(const AffineTransform& newValue);
  std::vector<MetadataItem> metaData() const;
  void setMetaData(std::vector<MetadataItem> newValue);
  const std::shared_ptr<TavrelGPUImageContext>& movieWriterContext() const { return movieWriterContext_; }
  /// Why the file could not be created or written; nothing while all is well.
  std::optional<Error> error() const;
  /// The size of the pictures in the file: the asked one, rounded up where the codec wants even numbers.
  Size encodedSize() const;
  /// Frames and sound buffers that a live recording had no room for, and frames of a time before the movie's start.
  std::uint64_t droppedVideoFrames() const { return droppedVideoFrames_; }
  std::uint64_t droppedAudioBuffers() const { return droppedAudioBuffers_; }

  void newFrameReadyAtTime(MediaTime frameTime, Index atIndex) override;
  void setInputFramebuffer(std::shared_ptr<TavrelGPUImageFramebuffer> newInputFramebuffer, Index atIndex) override;
  Index nextAvailableTextureIndex() const override { return 0; }
  /// The output size never follows the input.
  void setInputSize(Size, Index) override {}
  void setInputRotation(TavrelGPUImageRotationMode newInputRotation, Index) override {
    inputRotation_ = newInputRotation;
  }
  Size maximumOutputSize() const override { return videoSize_; }
  /// The source has ended: calls the completion block, once, or else the delegate.
  void endProcessing() override;
  bool shouldIgnoreUpdatesToThisTarget() const override { return false; }
  bool enabled() const override { return enabled_; }
  void setEnabled(bool newValue) { enabled_ = newValue; }
  bool wantsMonochromeInput() const override { return false; }
  void setCurrentlyReceivingMonochromeInput(bool) override {}

 private:
  /// A callback that one thread may replace while another one asks for it.
  class SharedCallback {
   public:
    void set(InputReadyCallback callback) {
      auto shared = callback ? std::make_shared<const InputReadyCallback>(std::move(callback)) : nullptr;
      const std::lock_guard lock(mutex_);
      callback_.swap(shared);
    }
    /// nullptr without one. Shared, not copied: it may keep count of something.
    std::shared_ptr<const InputReadyCallback> get() const {
      const std::lock_guard lock(mutex_);
      return callback_;
    }
    explicit operator bool() const { return get() != nullptr; }

   private:
    mutable std::mutex mutex_;
    std::shared_ptr<const InputReadyCallback> callback_;
  };

  /// Sets up everything but the file.
  Expected<void> initializeRendering();
  void initializeMovieWithOutputSettings(const std::optional<Dictionary>& outputSettings);
  void addVideoTrack(const std::optional<Dictionary>& outputSettings);
  void runOnWriterQueue(const std::function<void()>& block);
  bool isWriting() const { return assetWriter_ && assetWriter_->status() == AssetWriterStatus::writing; }
  void startWriting();
  MediaTime startSession(MediaTime time, bool isFedByCallback);
  void markTrackFinished(const std::shared_ptr<AssetWriterInput>& track, std::atomic<bool>& isFinished);
  void requestMediaData(const std::shared_ptr<AssetWriterInput>& track, const std::shared_ptr<DispatchQueue>& queue,
                        const SharedCallback& callback, std::atomic<bool>& isFinished);
  bool waitUntilReady(const std::shared_ptr<AssetWriterInput>& track, std::chrono::nanoseconds slice,
                      const std::atomic<bool>& isFinished) const;

  /// The time without what pauses took, measuring the gap first when this is the first sample after one.
  MediaTime timeWithoutPauses(MediaTime time, const MediaTime& previousTime);
  bool claimFrameInFlight(MediaTime frameTime);
  void encodeFrame(const std::shared_ptr<TavrelGPUImageFramebuffer>& framebuffer, MediaTime frameTime);
  void appendPixelBuffer(const std::shared_ptr<PixelBuffer>& pixelBuffer, MediaTime frameTime);
  std::shared_ptr<SampleBuffer> adjustTime(const std::shared_ptr<SampleBuffer>& sample, MediaTime by) const;
  void callAudioProcessingCallback(SampleBuffer& audioBuffer) const;
  void appendAudioBuffer(const std::shared_ptr<SampleBuffer>& audioBuffer, MediaTime time);
  void releaseAudioBuffer(SampleBuffer& audioBuffer) const;
  void dropVideoFrame(const char* stage, TraceName reason, MediaTime frameTime);
  void dropAudioBuffer(TraceName reason);
  void traceAppendedFrame(MediaTime frameTime) const;
  void traceAppendedSound(MediaTime end);

  bool createDataFBO();
  bool attachRenderTarget();
  void destroyDataFBO();
  bool setFilterFBO();
  /// The framebuffer's own pixel buffer, where drawing it would make the same picture; else nullptr.
  std::shared_ptr<PixelBuffer> readyPixelBuffer(const TavrelGPUImageFramebuffer& framebuffer) const;
  bool renderAtInternalSizeUsingFramebuffer(const TavrelGPUImageFramebuffer& framebuffer);
  std::shared_ptr<PixelBuffer> drawnPixelBuffer();

  const std::filesystem::path movieURL_;
  const std::string fileType_;
  const Size videoSize_;
  std::shared_ptr<AssetWriter> assetWriter_;
  std::shared_ptr<AssetWriterInput> assetWriterVideoInput_;
  std::shared_ptr<AssetWriterInput> assetWriterAudioInput_;
  std::shared_ptr<AssetWriterInputPixelBufferAdaptor> assetWriterPixelBufferInput_;
  std::optional<Error> creationError_;

  std::shared_ptr<TavrelGPUImageContext> movieWriterContext_;
  std::shared_ptr<PixelBuffer> renderTarget_;
  std::shared_ptr<TextureCacheTexture> renderTexture_;
  GLuint movieFramebuffer_ = 0;
  GLuint movieRenderbuffer_ = 0;
  std::shared_ptr<TavrelGLProgram> colorSwizzlingProgram_;
  GLuint colorSwizzlingPositionAttribute_ = 0;
  GLuint colorSwizzlingTextureCoordinateAttribute_ = 0;
  GLint colorSwizzlingInputTextureUniform_ = -1;
  std::atomic<TavrelGPUImageRotationMode> inputRotation_ = kTavrelGPUImageNoRotation;
  std::shared_ptr<TavrelGPUImageFramebuffer> firstInputFramebuffer_;

  mutable std::mutex timeMutex_;  // the two streams share what follows
  MediaTime startTime_;
  MediaTime previousFrameTime_ = MediaTime::negativeInfinity();
  MediaTime previousAudioTime_ = MediaTime::negativeInfinity();
  MediaTime offsetTime_;
  bool discont_ = false;

  std::atomic<bool> isRecording_ = false;
  std::atomic<bool> alreadyFinishedRecording_ = false;
  std::atomic<bool> videoEncodingIsFinished_ = false;
  std::atomic<bool> audioEncodingIsFinished_ = false;
  std::atomic<bool> hasAudioTrack_ = false;
  std::atomic<bool> encodingLiveVideo_ = true;
  std::atomic<bool> paused_ = false;
  std::atomic<bool> enabled_ = true;
  bool shouldPassthroughAudio_ = false;
  bool shouldInvalidateAudioSampleWhenDone_ = false;
  std::atomic<std::uint64_t> droppedVideoFrames_ = 0;
  std::atomic<std::uint64_t> droppedAudioBuffers_ = 0;
  DispatchSemaphore framesInFlight_;
  static constexpr std::int64_t kNoSound = INT64_MIN;
  std::atomic<std::int64_t> soundEnd_ = kNoSound;  // of what was appended, in nanoseconds; while tracing

  std::shared_ptr<DispatchQueue> videoQueue_;
  std::shared_ptr<DispatchQueue> audioQueue_;
  std::function<void()> completionBlock_;
  std::function<void(const Error&)> failureBlock_;
  std::weak_ptr<TavrelGPUImageMovieWriterDelegate> delegate_;
  SharedCallback videoInputReady_;
  SharedCallback audioInputReady_;
  AudioProcessingCallback audioProcessingCallback_;
};

}  // namespace tavrel
