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
#include "Platform/Imaging/DataProvider.h"
#include "Platform/Imaging/Image.h"
#include "Utiils/FLWeakProxy.h"
#include "Utiils/TavrelAnimatedImageDebugDelegate.h"

namespace tavrel {

/// The shortest time in seconds that a frame is shown; shorter ones become 0.1 s.
TAVREL_API extern const double kTavrelAnimatedImageDelayTimeIntervalMinimum;

/// How grave a message of the animated images is. A sink gets those up to its level.
enum class TavrelAnimatedImageLogLevel { none = 0, error = 1, warning = 2, info = 3, debug = 4 };

/// The frames of an animated GIF, PNG, WebP or AVIF picture or a short movie, by index; told apart by content.
///
/// A player on the main thread asks with `imageLazilyCachedAtIndex`, which never waits: it returns what is cached and
/// has the frames that come next decoded on a queue of the image's own. How many are kept follows the size of the
/// frames and memory warnings; the poster is kept for ever. `imageAtIndex` decodes on the caller's thread instead.
///
/// All members belong to the main thread, except creation, destruction, `imageAtIndex`, `prepareJumps`, `giveUp`, the
/// static ones and those that never change after creation: `data`, `posterImage`, `posterImageFrameIndex`, `size`,
/// `loopCount`, `frameCount`, `delayTimesForIndexes`, `frameCacheSizeOptimal` and `predrawingEnabled`, which any thread
/// may use.
class TAVREL_API TavrelAnimatedImage : public std::enable_shared_from_this<TavrelAnimatedImage> {
 public:
  using LogBlock = std::function<void(const std::string& logString, TavrelAnimatedImageLogLevel logLevel)>;
  /// Runs `call` on the main thread once `delay` has passed.
  using DelayedCallScheduler = std::function<void(std::chrono::nanoseconds delay, std::function<void()> call)>;

  /// Looks through the file and decodes the first frame. Frames that hold nothing that can be decoded are dropped, yet
  /// keep their index. With an `optimalFrameCacheSize` of 0 the size of the frames decides how many are kept. With
  /// `predrawingEnabled` frames are brought to the layout in which they are shown when they are decoded. Fails
  /// ("imaging") with the text that is logged, and the reason, when there are no data, they are no GIF and no other
  /// animation, or no frame can be decoded.
  static Expected<std::shared_ptr<TavrelAnimatedImage>> create(std::shared_ptr<DataProvider> animatedGIFData,
                                                               std::size_t optimalFrameCacheSize = 0,
                                                               bool predrawingEnabled = true);
  static Expected<std::shared_ptr<TavrelAnimatedImage>> create(Data animatedGIFData,
                                                               std::size_t optimalFrameCacheSize = 0,
                                                               bool predrawingEnabled = true);
  /// Always fails, and logs what to call instead.
  static Expected<std::shared_ptr<TavrelAnimatedImage>> create();
  /// The image, or nullptr when `create` fails.
  static std::shared_ptr<TavrelAnimatedImage> animatedImageWithGIFData(Data data);

  TavrelAnimatedImage(const TavrelAnimatedImage&) = delete;
  TavrelAnimatedImage& operator=(const TavrelAnimatedImage&) = delete;
  /// A frame that is being decoded is finished first.
  ~TavrelAnimatedImage();

  /// The file's bytes, shared.
  const std::shared_ptr<DataProvider>& data() const;
  /// The first frame that could be decoded, and its index.
  const std::shared_ptr<Image>& posterImage() const;
  std::size_t posterImageFrameIndex() const;
  /// In pixels.
  Size size() const;
  /// How often the animation is played; 0 means for ever. Once where the file does not say.
  std::size_t loopCount() const;
  /// The seconds that each frame is shown; dropped frames have none.
  const std::map<std::size_t, double>& delayTimesForIndexes() const;
  /// Of the file, dropped ones included.
  std::size_t frameCount() const;
  bool predrawingEnabled() const;

  /// Seconds; the sum of the delays unless set.
  double durationPerLoop() const;
  void setDurationPerLoop(double durationPerLoop);

  /// The frame, or nullptr while it is not decoded yet and when there is no such frame. Has the frames from here on
  /// decoded, round the end, as many as the cache holds.
  std::shared_ptr<Image> imageLazilyCachedAtIndex(std::size_t index);
  /// Decodes the frame, predrawn when that is enabled; nullptr when it cannot be. Waits where another thread decodes.
  std::shared_ptr<Image> imageAtIndex(std::size_t index);
  /// Decodes a few frames so that any other one is near a check-point; see `ImageSource`. False when that is done. Any
  /// thread.
  bool prepareJumps();
  /// Has what is being decoded, and all that is asked for later, end soon without a frame. Any thread.
  void giveUp();
  /// In pixels, of a `std::shared_ptr` to an `Image` or an animated image; of anything else zero, which is logged.
  static Size sizeForImage(const std::any& image);
  /// The frame in the layout in which it is shown: drawn once into a bitmap of 32-bit pixels, opaque or premultiplied
  /// as the frame is. A frame that is one already, and one that cannot be drawn, is returned as it is.
  static std::shared_ptr<Image> predrawnImageFromImage(const std::shared_ptr<Image>& imageToPredraw);

  /// How many frames are best kept in view of their size.
  std::size_t frameCacheSizeOptimal() const;
  /// How many are kept: the best number, within the limits.
  std::size_t frameCacheSizeCurrent() const;
  /// The application's limit; 0 is none.
  std::size_t frameCacheSizeMax() const;
  void setFrameCacheSizeMax(std::size_t frameCacheSizeMax);
  /// The limit after memory warnings; 0 is none.
  std::size_t frameCacheSizeMaxInternal() const;
  std::size_t memoryWarningCount() const;

  std::size_t requestedFrameIndex() const;
  /// The frames from the requested one on, round the end, as many as the cache holds, and the poster.
  std::set<std::size_t> frameIndexesToCache() const;
  std::set<std::size_t> cachedFrameIndexes() const;
  /// Being decoded, or waiting for it.
  const std::set<std::size_t>& requestedFrameIndexes() const;

  const FLWeakProxy<TavrelAnimatedImage>& weakProxy() const;
  void setDebugDelegate(std::weak_ptr<TavrelAnimatedImageDebugDelegate> delegate);
  std::string description() const;

  /// Sends messages of all animated images up to `logLevel` to `logBlock`, on the thread where they arise; an empty one
  /// ends that. At first `libraryLogBlock` gets errors and warnings.
  static void setLogBlock(LogBlock logBlock, TavrelAnimatedImageLogLevel logLevel);
  /// The sink that hands messages on to the library's log, with its own levels.
  static LogBlock libraryLogBlock();
  /// Logs the text that `stringBlock` makes; it is called only when somebody listens to this level.
  static void logStringFromBlock(const std::function<std::string()>& stringBlock,
                                 TavrelAnimatedImageLogLevel withLevel);
  /// Replaces the clock by which caches grow again after memory warnings; an empty one restores the main queue's.
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

  std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavrel
