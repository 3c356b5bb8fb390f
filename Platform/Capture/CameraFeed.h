#pragma once

#include <functional>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

#include "Platform/Foundation/Error.h"
#include "Platform/Graphics/PixelBufferSnapshot.h"

namespace tavrel {

/// How pictures of a feed lie in memory. Y Cb Cr is that of webcams: ITU-R BT.601, limited range, chroma between two
/// columns (YUY2), or between two columns and rows (NV12).
enum class CameraFeedFormat { bgra, nv12, yuy2 };

/// A camera that other programs see and this process feeds.
///
///     without readers ⇄ read ──service or node fails──▶ failed ──it is back (looked for every two seconds)──▶ …
///
/// Pictures go out at the feed's rate at most, a new one at once. When none comes, the last one is repeated at that
/// rate. A reader that does not fetch a picture in time misses it and delays nobody; before the first picture it gets
/// none. Conversion and output happen on the feed's own thread ("tavrel.feed").
class CameraFeed {
 public:
  struct Description {
    std::string name;  ///< by which people choose the camera
    int width = 0;     ///< in pixels: even, 2 to 16384
    int height = 0;
    double framesPerSecond = 30;  ///< 1 to 240
    /// What readers may choose from, best first; a video node takes the first one that it supports. Empty: all, in the
    /// order that suits the destination's readers.
    std::vector<CameraFeedFormat> formats = {};
  };
  /// Called on the feed's thread; must not wait for a thread that calls the feed.
  struct Events {
    std::function<void(bool hasReaders)> readersChanged;
    /// The service or the node failed. The feed looks for it again; `readersChanged` tells when it is back.
    std::function<void(const Error& error)> failed;
  };
  struct Counts {
    std::uint64_t shown = 0;     ///< pictures that went out for the first time
    std::uint64_t repeated = 0;  ///< repetitions of the last one
    std::uint64_t missed = 0;    ///< due, but readers had left no room
  };

  /// `destination` is "pipewire", for a node of class Video/Source and role Camera, or the path of a video node that
  /// takes pictures (v4l2loopback). Fails with `CaptureErrorCode::invalidConfiguration`, and as the system does when
  /// there is no such service or node.
  static Expected<std::unique_ptr<CameraFeed>> create(std::string_view destination, const Description& description,
                                                      Events events);
  CameraFeed() = default;
  CameraFeed(const CameraFeed&) = delete;
  CameraFeed& operator=(const CameraFeed&) = delete;
  /// No event follows. Do not call it in an event.
  virtual ~CameraFeed() = default;

  /// Whether anybody reads; a video node does not tell, and counts as read. Any thread.
  virtual bool hasReaders() const = 0;
  /// Number of readers, as far as it is known; a video node counts as one. Any thread.
  virtual int readerCount() const = 0;
  /// Makes a BGRA picture of the feed's size the latest one. Any thread; returns at once.
  virtual void show(std::shared_ptr<const PixelBufferSnapshot> picture) = 0;
  /// Any thread.
  virtual Counts counts() const = 0;
};

}  // namespace tavrel
