#pragma once

#include <any>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <set>
#include <string>
#include <string_view>

#include "Platform/Foundation/Data.h"
#include "Platform/Foundation/Error.h"
#include "Platform/Foundation/Export.h"
#include "Platform/Foundation/Geometry.h"
#include "Platform/Foundation/Pimpl.h"
#include "Platform/Imaging/DataProvider.h"
#include "Platform/Imaging/Image.h"
#include "Utiils/FLWeakProxy.h"
#include "Utiils/TavrelAnimatedImageDebugDelegate.h"

namespace tavrel {

/// Minimum delay of a frame in seconds; shorter ones become 0.1 s.
TAVREL_API extern const double kTavrelAnimatedImageDelayTimeIntervalMinimum;

/// Severity of an animated image's message. A sink receives those up to its level.
enum class TavrelAnimatedImageLogLevel { none = 0, error = 1, warning = 2, info = 3, debug = 4 };

/// The frames, by index, of an animated GIF, PNG, WebP or AVIF image or a short movie, detected by content.
///
/// A player on the main thread calls `imageLazilyCachedAtIndex`, which never waits: it returns a cached frame and lets
/// the image's own queue decode the next ones. The size of the cache depends on the frames' size and on memory
/// warnings; the poster always stays. `imageAtIndex` decodes on the calling thread instead.
///
/// Main thread, except for creation, destruction, `imageAtIndex`, `prepareJumps`, `giveUp`, static members and those
/// that never change: `data`, `posterImage`, `posterImageFrameIndex`, `size`, `loopCount`, `frameCount`,
/// `delayTimesForIndexes`, `frameCacheSizeOptimal` and `predrawingEnabled`.
class TAVREL_API TavrelAnimatedImage : public std::enable_shared_from_this<TavrelAnimatedImage> {
 public:
  using LogBlock = std::function<void(const std::string& logString, TavrelAnimatedImageLogLevel logLevel)>;
  /// Runs `call` on the main thread after `delay`.
  using DelayedCallScheduler = std::function<void(std::chrono::nanoseconds delay, std::function<void()> call)>;

  /// Scans the file and decodes the first frame. Frames without decodable data are left out but keep their index.
  /// `optimalFrameCacheSize` 0 derives the cache size from the frames' size. `predrawingEnabled` converts decoded
  /// frames to the layout they are shown in. Fails ("imaging") and logs the reason if there is no data, it is not an
  /// animation or no frame can be decoded.
  static Expected<std::shared_ptr<TavrelAnimatedImage>> create(std::shared_ptr<DataProvider> animatedGIFData,
                                                               std::size_t optimalFrameCacheSize = 0,
                                                               bool predrawingEnabled = true);
  static Expected<std::shared_ptr<TavrelAnimatedImage>> create(Data animatedGIFData,
                                                               std::size_t optimalFrameCacheSize = 0,
                                                               bool predrawingEnabled = true);
  /// Always fails, and logs what to call instead.
  static Expected<std::shared_ptr<TavrelAnimatedImage>> create();
  /// The image, or nullptr if `create` fails.
  static std::shared_ptr<TavrelAnimatedImage> animatedImageWithGIFData(Data data);

  TavrelAnimatedImage(const TavrelAnimatedImage&) = delete;
  TavrelAnimatedImage& operator=(const TavrelAnimatedImage&) = delete;
  /// Waits for a frame that is being decoded.
  ~TavrelAnimatedImage();

  /// The file's bytes.
  const std::shared_ptr<DataProvider>& data() const;
  /// The first decodable frame, and its index.
  const std::shared_ptr<Image>& posterImage() const;
  std::size_t posterImageFrameIndex() const;
  /// In pixels.
  Size size() const;
  /// How often the animation plays; 0 means for ever. 1 if the file does not say.
  std::size_t loopCount() const;
  /// The delay of each frame in seconds, without frames that were left out.
  const std::map<std::size_t, double>& delayTimesForIndexes() const;
  /// Includes frames that were left out.
  std::size_t frameCount() const;
  bool predrawingEnabled() const;

  /// In seconds; by default the sum of the delays.
  double durationPerLoop() const;
  void setDurationPerLoop(double durationPerLoop);

  /// The frame, or nullptr if it is not decoded yet or does not exist. Starts decoding as many following frames, in a
  /// loop, as the cache holds.
  std::shared_ptr<Image> imageLazilyCachedAtIndex(std::size_t index);
  /// Decodes the frame, predrawn if that is enabled; nullptr on failure. Waits while another thread decodes.
  std::shared_ptr<Image> imageAtIndex(std::size_t index);
  /// Decodes a few frames to create checkpoints; see `ImageSource::prepareJumps`. False if there are enough. Any
  /// thread.
  bool prepareJumps();
  /// Makes decoding in progress, and all later decoding, end soon without a frame. Any thread.
  void giveUp();
  /// The size in pixels of a `std::shared_ptr` to an `Image` or `TavrelAnimatedImage`. Anything else is logged and
  /// gives zero.
  static Size sizeForImage(const std::any& image);
  /// The frame in the layout it is shown in: drawn into a 32-bit bitmap, opaque or premultiplied like the frame. A
  /// frame that has this layout or cannot be drawn is returned unchanged.
  static std::shared_ptr<Image> predrawnImageFromImage(const std::shared_ptr<Image>& imageToPredraw);

  /// The best number of cached frames for their size.
  std::size_t frameCacheSizeOptimal() const;
  /// The current number: the best one, within the limits.
  std::size_t frameCacheSizeCurrent() const;
  /// The application's limit; 0 for none.
  std::size_t frameCacheSizeMax() const;
  void setFrameCacheSizeMax(std::size_t frameCacheSizeMax);
  /// The limit after memory warnings; 0 for none.
  std::size_t frameCacheSizeMaxInternal() const;
  std::size_t memoryWarningCount() const;

  std::size_t requestedFrameIndex() const;
  /// As many frames as the cache holds, from the requested one on in a loop, and the poster.
  std::set<std::size_t> frameIndexesToCache() const;
  std::set<std::size_t> cachedFrameIndexes() const;
  /// Frames being decoded or waiting to be.
  const std::set<std::size_t>& requestedFrameIndexes() const;

  const FLWeakProxy<TavrelAnimatedImage>& weakProxy() const;
  void setDebugDelegate(std::weak_ptr<TavrelAnimatedImageDebugDelegate> delegate);
  std::string description() const;

  /// Sends messages of all animated images up to `logLevel` to `logBlock`, on the thread that logs; an empty block
  /// stops that. By default `libraryLogBlock` receives errors and warnings.
  static void setLogBlock(LogBlock logBlock, TavrelAnimatedImageLogLevel logLevel);
  /// The sink that forwards messages to the library's log.
  static LogBlock libraryLogBlock();
  /// Logs the result of `stringBlock`, which is called only if a sink receives this level.
  static void logStringFromBlock(const std::function<std::string()>& stringBlock,
                                 TavrelAnimatedImageLogLevel withLevel);
  /// Replaces the scheduler by which caches grow again after memory warnings; an empty one restores the main queue.
  static void setDelayedCallScheduler(DelayedCallScheduler scheduler);

 private:
  struct Implementation;
  struct Loader;
  struct Shared;

  explicit TavrelAnimatedImage(std::shared_ptr<DataProvider> data);
  static Shared& shared();

  std::shared_ptr<Image> decodedFrame(std::size_t index);
  void addFrameIndexesToCache(const std::set<std::size_t>& frameIndexesToAddToCache);
  void decodeAhead(std::size_t index);
  void storeFrame(std::size_t index, std::shared_ptr<Image> frame);
  void purgeFrameCacheIfNeeded();
  void removeFromCache(std::size_t first, std::size_t last);

  static void didReceiveMemoryWarningNotification();
  void didReceiveMemoryWarning();
  void setFrameCacheSizeMaxInternal(std::size_t frameCacheSizeMaxInternal);
  void growFrameCacheSizeAfterMemoryWarning(std::size_t frameCacheSize);
  void resetFrameCacheSizeMaxInternal();
  /// `call` of this image after `delay`, unless the image is gone or another call was scheduled or cancelled since.
  void performAfterDelay(std::chrono::nanoseconds delay, std::function<void(TavrelAnimatedImage&)> call);
  void runDelayedCall(std::uint64_t number, const std::function<void(TavrelAnimatedImage&)>& call);

  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
