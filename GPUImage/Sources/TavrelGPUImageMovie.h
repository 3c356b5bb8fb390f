#pragma once

#include <filesystem>
#include <memory>

#include "GPUImage/TavrelGPUImageOutput.h"
#include "Platform/Foundation/Pimpl.h"
#include "Platform/Media/AssetReader.h"
#include "Platform/Media/PlayerItem.h"

namespace tavrel {

class TavrelGPUImageMovieWriter;

/// Told what a movie source does.
class TAVREL_API TavrelGPUImageMovieDelegate {
 public:
  virtual ~TavrelGPUImageMovieDelegate() = default;
  /// The movie has ended or was cancelled; on the thread that did so.
  virtual void didCompletePlayingMovie() {}
  /// Receives every frame before it enters the graph, and returns the 'BGRA' buffer to use, not nullptr. On the
  /// video-processing queue.
  virtual std::shared_ptr<PixelBuffer> didOutputPixelBuffer(const std::shared_ptr<PixelBuffer>& pixelBuffer,
                                                            MediaTime timestamp) {
    (void)timestamp;
    return pixelBuffer;
  }
};

/// Feeds the frames of a movie, with their times, into the graph, and its audio as stored to `audioEncodingTarget`.
///
///     idle ──startProcessing──▶ reading ──▶ completed (every target hears `endProcessing`, the delegate is cleared)
///                                  └── with shouldRepeat, once more from the start
///
/// A file is opened on the global queue and read on a thread of its own. An asset is read on the thread that calls
/// `startProcessing`, which returns at the end. After `enableSynchronizedEncodingUsingMovieWriter`, the writer's queues
/// read as fast as it takes frames. A player item is read on the main run loop, at the display's rate. The source keeps
/// itself alive while it reads a file; otherwise its owner must. A damaged movie is read as far as it decodes. One that
/// cannot be read is only reported on the console, and a file that cannot be opened not even there. Any thread.
/// Settings apply from the next `startProcessing`, but pace and repetition at once.
class TAVREL_API TavrelGPUImageMovie : public TavrelGPUImageOutput, public PlayerItemOutputDelegate {
 public:
  explicit TavrelGPUImageMovie(const std::filesystem::path& url);
  explicit TavrelGPUImageMovie(const std::shared_ptr<Asset>& asset);
  explicit TavrelGPUImageMovie(const std::shared_ptr<PlayerItem>& playerItem);
  ~TavrelGPUImageMovie() override;

  void startProcessing();
  void cancelProcessing();
  /// Ends the repetition, tells every target and the delegate, and clears the delegate. Called at the end of the movie.
  void endProcessing();
  /// Pull mode: `movieWriter` requests frames and audio when it has room. Turns off its `encodingLiveVideo`.
  void enableSynchronizedEncodingUsingMovieWriter(const std::shared_ptr<TavrelGPUImageMovieWriter>& movieWriter);

  /// The part of the movie read so far, from 0 to 1.
  float progress() const;

  /// Empty without a file.
  std::filesystem::path url() const;
  void setUrl(const std::filesystem::path& newValue);
  /// For a file, set once it is loaded.
  std::shared_ptr<Asset> asset() const;
  void setAsset(const std::shared_ptr<Asset>& newValue);
  std::shared_ptr<PlayerItem> playerItem() const;
  void setPlayerItem(const std::shared_ptr<PlayerItem>& newValue);
  std::shared_ptr<AssetReader> assetReader() const;
  bool audioEncodingIsFinished() const;
  bool videoEncodingIsFinished() const;

  /// Whether the time of each frame is written to the console.
  bool runBenchmark() const;
  void setRunBenchmark(bool newValue);
  /// Whether frames are paced by their times. Late ones are delivered at once.
  bool playAtActualSpeed() const;
  void setPlayAtActualSpeed(bool newValue);
  /// Whether a file loops. With an asset, nothing is read if this is true.
  bool shouldRepeat() const;
  void setShouldRepeat(bool newValue);
  /// Delivers the last frame first, with ascending times. Decodes the movie once beforehand and caches up to 512 MiB of
  /// frames. Audio is not reversed.
  bool reverseVideo() const;
  void setReverseVideo(bool newValue);
  /// Stored for the caller; has no effect.
  double startTime() const;
  void setStartTime(double newValue);
  double duration() const;
  void setDuration(double newValue);
  std::shared_ptr<TavrelGPUImageMovieDelegate> delegate() const;
  void setDelegate(const std::shared_ptr<TavrelGPUImageMovieDelegate>& newValue);

  void outputMediaDataWillChange(PlayerItemVideoOutput& sender) override;

 protected:
  /// A reader of the video and, for an `audioEncodingTarget`, the audio; nullptr without an asset.
  virtual std::shared_ptr<AssetReader> createAssetReader();
  /// The settings of a video output that are fastest with the present driver: 'BGRA'; on a GPU also planes, which are
  /// uploaded as they are and converted to RGB in the first filter's draw. The environment variable
  /// `TAVREL_MOVIE_PLANES` (0 or 1) overrides the choice. A delegate then receives planes, too.
  static Dictionary settingsOfSoonestPictures();
  /// Adds an audio output; its buffers are released as soon as the target has used them.
  void addAudioOutput(AssetReader& reader, std::shared_ptr<AssetReaderOutput> output) const;

 private:
  struct Implementation;
  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
