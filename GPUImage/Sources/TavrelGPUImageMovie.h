#pragma once

#include <atomic>
#include <filesystem>
#include <memory>
#include <mutex>
#include <vector>

#include "GPUImage/Destinations/TavrelGPUImageMovieWriter.h"
#include "GPUImage/TavrelGPUImageContext.h"
#include "GPUImage/TavrelGPUImageOutput.h"
#include "Platform/Graphics/PixelBuffer.h"
#include "Platform/Media/Asset.h"
#include "Platform/Media/AssetReader.h"
#include "Platform/Media/DisplayLink.h"
#include "Platform/Media/PlayerItem.h"

namespace tavrel {

/// Hears what a movie source does.
class TAVREL_API TavrelGPUImageMovieDelegate {
 public:
  virtual ~TavrelGPUImageMovieDelegate() = default;
  /// The movie has ended or was cancelled. On the thread that ended it.
  virtual void didCompletePlayingMovie() {}
  /// Sees every picture before it enters the graph; the buffer that it returns, of 'BGRA' and not nullptr, goes there
  /// instead. On the video-processing queue.
  virtual std::shared_ptr<PixelBuffer> didOutputPixelBuffer(const std::shared_ptr<PixelBuffer>& pixelBuffer,
                                                            MediaTime timestamp) {
    (void)timestamp;
    return pixelBuffer;
  }
};

/// Pushes the pictures of a movie into the graph, with their times, and its sound to `audioEncodingTarget` as it is
/// stored.
///
///     idle ──startProcessing──▶ reading ──▶ completed (every target hears `endProcessing`, the delegate is cleared)
///                                  └── with shouldRepeat, once more from the start
///
/// Who reads: with a file, a thread of the global queue; with an asset, the thread that calls `startProcessing`, which
/// returns at the end; after `enableSynchronizedEncodingUsingMovieWriter`, the queues of that writer, as fast as it
/// takes the frames; with a player item, the main run loop at the display's rate, what is due then. The source stays
/// alive while a thread reads; for a writer or a player item its owner keeps it. A damaged movie is read as far as it
/// decodes; one that cannot be opened is only said on the console. Control from any thread.
class TAVREL_API TavrelGPUImageMovie : public TavrelGPUImageOutput, public PlayerItemOutputDelegate {
 public:
  explicit TavrelGPUImageMovie(const std::filesystem::path& url);
  explicit TavrelGPUImageMovie(const std::shared_ptr<Asset>& asset);
  explicit TavrelGPUImageMovie(const std::shared_ptr<PlayerItem>& playerItem);
  ~TavrelGPUImageMovie() override;

  void startProcessing();
  void cancelProcessing();
  /// Ends the repetition and tells every target and the delegate, which is cleared afterwards. Called at the end of the
  /// movie.
  void endProcessing();
  /// Pull mode: `movieWriter` asks for frames and sound when it has room for them. It stops encoding live.
  void enableSynchronizedEncodingUsingMovieWriter(const std::shared_ptr<TavrelGPUImageMovieWriter>& movieWriter);

  /// From 0 to 1: how far the frames have come that left last.
  float progress() const;

  /// Empty without one.
  std::filesystem::path url() const;
  void setUrl(const std::filesystem::path& newValue);
  /// For a file, once it is loaded.
  std::shared_ptr<Asset> asset() const;
  void setAsset(const std::shared_ptr<Asset>& newValue);
  std::shared_ptr<PlayerItem> playerItem() const;
  void setPlayerItem(const std::shared_ptr<PlayerItem>& newValue);
  std::shared_ptr<AssetReader> assetReader() const;
  bool audioEncodingIsFinished() const { return audioEncodingIsFinished_; }
  bool videoEncodingIsFinished() const { return videoEncodingIsFinished_; }

  /// Says on the console how long each frame took.
  bool runBenchmark() const { return runBenchmark_; }
  void setRunBenchmark(bool newValue) { runBenchmark_ = newValue; }
  /// Frames leave no sooner after each other than their times say.
  bool playAtActualSpeed() const { return playAtActualSpeed_; }
  void setPlayAtActualSpeed(bool newValue) { playAtActualSpeed_ = newValue; }
  /// Files only.
  bool shouldRepeat() const { return shouldRepeat_; }
  void setShouldRepeat(bool newValue) { shouldRepeat_ = newValue; }
  /// The last picture first, with the times of the movie in order. The movie is decoded once more beforehand; sound is
  /// not reversed. Up to 512 MiB of decoded pictures are kept.
  bool reverseVideo() const { return reverseVideo_; }
  void setReverseVideo(bool newValue) { reverseVideo_ = newValue; }
  /// Kept for the caller.
  double startTime() const { return startTime_; }
  void setStartTime(double newValue) { startTime_ = newValue; }
  double duration() const { return duration_; }
  void setDuration(double newValue) { duration_ = newValue; }
  std::shared_ptr<TavrelGPUImageMovieDelegate> delegate() const;
  void setDelegate(const std::shared_ptr<TavrelGPUImageMovieDelegate>& newValue);

  void outputMediaDataWillChange(PlayerItemVideoOutput& sender) override;

 protected:
  /// A reader of the pictures and, for an `audioEncodingTarget`, the sound; nullptr without an asset.
  virtual std::shared_ptr<AssetReader> createAssetReader();
  /// Adds an output for sound; its buffers are let go as soon as the target has used them.
  void addAudioOutput(AssetReader& reader, std::shared_ptr<AssetReaderOutput> output) const;

 private:
  void processAsset();
  void readVideoTimes(AssetReaderOutput& videoOutput);
  void letWriterRead(TavrelGPUImageMovieWriter& writer, const std::shared_ptr<AssetReaderOutput>& videoOutput,
                     const std::shared_ptr<AssetReaderOutput>& audioOutput);
  void readToTheEnd(const std::shared_ptr<AssetReaderOutput>& videoOutput,
                    const std::shared_ptr<AssetReaderOutput>& audioOutput);
  bool readNextVideoFrameFromOutput(AssetReaderOutput& readerVideoTrackOutput);
  std::shared_ptr<SampleBuffer> copyReversedSampleBuffer(AssetReaderOutput& output) const;
  bool readNextAudioSampleFromOutput(AssetReaderOutput& readerAudioTrackOutput);
  void waitForActualTime(const SampleBuffer& sample);

  void processMovieFrame(const SampleBuffer& movieSampleBuffer);
  void processMovieFrame(const std::shared_ptr<PixelBuffer>& movieFrame, MediaTime withSampleTime);
  void uploadAsTexture(const std::shared_ptr<PixelBuffer>& movieFrame, MediaTime time);
  void uploadBytes(const std::shared_ptr<PixelBuffer>& movieFrame, MediaTime time);
  void deliver(Size size, MediaTime time);

  void processPlayerItem();
  void displayLinkCallback(DisplayLink& sender);
  void processPixelBufferAtTime(MediaTime outputItemTime);
  AssetReaderStatus readerStatus() const;
  std::shared_ptr<TavrelGPUImageMovieWriter> synchronizedMovieWriter() const;

  mutable std::mutex mutex_;  // guards what follows, up to the atomic values
  std::filesystem::path url_;
  std::shared_ptr<Asset> asset_;
  std::shared_ptr<PlayerItem> playerItem_;
  std::shared_ptr<AssetReader> reader_;
  std::shared_ptr<PlayerItemVideoOutput> playerItemOutput_;
  std::shared_ptr<DisplayLink> displayLink_;
  std::shared_ptr<TavrelGPUImageMovieWriter> synchronizedMovieWriter_;
  MediaTime processingFrameTime_;
  std::weak_ptr<TavrelGPUImageMovieDelegate> delegate_;

  // Of the thread that reads pictures.
  MediaTime previousFrameTime_;
  double previousActualFrameTime_ = 0;
  std::vector<MediaTime> videoPts_;
  bool isReversed_ = false;
  std::atomic<Index> currentIndex_ = 0;

  std::atomic<bool> keepLooping_ = false;
  std::atomic<bool> audioEncodingIsFinished_ = false;
  std::atomic<bool> videoEncodingIsFinished_ = false;
  std::atomic<bool> runBenchmark_ = false;
  std::atomic<bool> playAtActualSpeed_ = false;
  std::atomic<bool> shouldRepeat_ = false;
  std::atomic<bool> reverseVideo_ = false;
  std::atomic<double> startTime_ = 0;
  std::atomic<double> duration_ = 0;
};

}  // namespace tavrel
