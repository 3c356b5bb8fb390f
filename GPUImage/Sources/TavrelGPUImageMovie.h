#pragma once

#include <filesystem>
#include <memory>

#include "GPUImage/TavrelGPUImageOutput.h"
#include "Platform/Media/AssetReader.h"
#include "Platform/Media/PlayerItem.h"

namespace tavrel {

class TavrelGPUImageMovieWriter;

/// Is told what a movie source does.
class TAVREL_API TavrelGPUImageMovieDelegate {
 public:
  virtual ~TavrelGPUImageMovieDelegate() = default;
  /// The movie has ended or was cancelled. On the thread that ended or cancelled it.
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
/// alive while a thread of its own reads; for a writer or a player item its owner keeps it. A damaged movie is read as
/// far as it decodes. One that cannot be read is only reported on the console; a file that cannot be opened, not at
/// all. Any thread may call the members; what is set applies from the next `startProcessing` on, pace and repetition at
/// once.
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

  /// How far the movie has been read, from 0 to 1.
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
  bool audioEncodingIsFinished() const;
  bool videoEncodingIsFinished() const;

  /// Whether the console is told how long each frame took.
  bool runBenchmark() const;
  void setRunBenchmark(bool newValue);
  /// Whether frames leave no sooner after each other than their times say. Late ones leave at once.
  bool playAtActualSpeed() const;
  void setPlayAtActualSpeed(bool newValue);
  /// Whether the movie begins again when it has ended. Files only; an asset is not read at all then.
  bool shouldRepeat() const;
  void setShouldRepeat(bool newValue);
  /// The last picture first, with the times of the movie in order. The movie is decoded once more beforehand; sound is
  /// not reversed. Up to 512 MiB of decoded pictures are kept.
  bool reverseVideo() const;
  void setReverseVideo(bool newValue);
  /// Kept for the caller.
  double startTime() const;
  void setStartTime(double newValue);
  double duration() const;
  void setDuration(double newValue);
  std::shared_ptr<TavrelGPUImageMovieDelegate> delegate() const;
  void setDelegate(const std::shared_ptr<TavrelGPUImageMovieDelegate>& newValue);

  void outputMediaDataWillChange(PlayerItemVideoOutput& sender) override;

 protected:
  /// A reader of the pictures and, for an `audioEncodingTarget`, the sound; nullptr without an asset.
  virtual std::shared_ptr<AssetReader> createAssetReader();
  /// Adds an output for sound; its buffers are let go as soon as the target has used them.
  void addAudioOutput(AssetReader& reader, std::shared_ptr<AssetReaderOutput> output) const;

 private:
  struct Implementation;
  std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavrel
