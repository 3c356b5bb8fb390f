#pragma once

#include <linux/videodev2.h>

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <vector>

#include "Platform/Capture/V4L2/Private/V4L2SystemCalls.h"

namespace tavrel::test {

/// A kernel's video node, played: it keeps to the streaming protocol and notes whoever does not. Frames come at the
/// interval that was chosen while the stream is on and a buffer is queued. Any thread.
class FakeVideoNode {
 public:
  struct Format {
    std::uint32_t pixelFormat;
    std::vector<std::pair<std::uint32_t, std::uint32_t>> sizes;
    std::vector<std::uint32_t> rates;
  };
  struct Control {
    int minimum = 0;
    int maximum = 1;
    int value = 0;
    std::set<int> menu = {};  ///< entries of a menu control
    bool isButton = false;
  };

  /// One of several, or a digital one, whose source has a size and a rate.
  struct Input {
    std::string name;
    bool hasSignal = true;
    std::optional<std::pair<std::uint32_t, std::uint32_t>> size = {};
    std::uint32_t rate = 60;
  };

  std::string card = "Fake camera";
  std::string bus = "usb-0000:00:14.0-1";
  std::string serial;
  std::uint32_t deviceCaps = V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_STREAMING;
  std::vector<Format> formats = {{V4L2_PIX_FMT_YUYV, {{64, 48}, {128, 96}}, {30, 15}}};
  std::map<std::uint32_t, Control> controls;
  std::uint32_t quantization = V4L2_QUANTIZATION_DEFAULT;
  std::uint32_t encoding = V4L2_YCBCR_ENC_DEFAULT;
  std::uint32_t colorspace = V4L2_COLORSPACE_SRGB;
  std::uint32_t padding = 0;  ///< bytes after each row
  /// Rows and memory of its planes, where they are not those that this knows of the formats it plays.
  struct PlaneShape {
    std::uint32_t bytesPerRow = 0;
    std::uint32_t byteCount = 0;
  };
  std::vector<PlaneShape> planeShapes;
  /// All sizes between two by steps, instead of those of the formats: least width, most, step, and the heights'.
  std::optional<v4l2_frmsize_stepwise> steps;
  std::vector<Input> inputs;  ///< before it is used; `setSource` changes it later
  v4l2_rect region{};         ///< the largest of interest, and then what was set
  bool hasRegion = false;
  bool isBusFull = false;             ///< raw pictures find no room
  std::optional<int> manualExposure;  ///< where the exposure jumps when it is no longer automatic
  /// What it says of when a frame was captured, in nanoseconds, and by which clock (V4L2_BUF_FLAG_TIMESTAMP_…).
  std::function<std::int64_t(std::int64_t captured, std::uint32_t sequence)> stamp;
  std::uint32_t stampFlags = V4L2_BUF_FLAG_TIMESTAMP_MONOTONIC;
  /// Fills a frame and returns how many bytes it has.
  std::function<std::size_t(std::uint8_t* bytes, std::size_t capacity, std::uint32_t sequence)> draw;
  /// The same for the planes after the first, where they have memory of their own.
  std::function<std::size_t(std::size_t plane, std::uint8_t* bytes, std::size_t capacity)> drawPlane;

  explicit FakeVideoNode(std::string path) : path_(std::move(path)) {}

  /// The table for all nodes given.
  static V4L2SystemCalls calls(std::vector<std::shared_ptr<FakeVideoNode>> nodes);

  // What happens to it.
  void unplug();
  void plugIn();
  void setBusy(int openErrno, int formatErrno);
  void setStalled(bool stalled);
  /// While true, starting the stream takes for ever.
  void setHeld(bool held);
  /// The next so many dequeues fail so.
  void failDequeues(int count, int code);
  /// The next frame carries the error flag; the next but one is left out.
  void damageNextFrame();
  void skipFrames(std::uint32_t count);
  /// What an input receives from now on, which it tells by an event.
  void setSource(std::size_t input, bool hasSignal, std::pair<std::uint32_t, std::uint32_t> size);

  // What was done with it.
  std::vector<std::string> violations() const;
  int openCount() const;
  int openings() const;  ///< in all
  int chosenInput() const;
  v4l2_rect chosenRegion() const;
  std::vector<int> valuesOf(std::uint32_t identity) const;  ///< that were set, in their order
  int mappedCount() const;
  bool isStreaming() const;
  int controlValue(std::uint32_t identity) const;
  double frameRate() const;
  int starts() const;

 private:
  enum class State { dequeued, queued, filled };
  struct Plane {
    std::vector<std::uint8_t> memory;
    bool isMapped = false;
    std::size_t used = 0;
  };
  struct Buffer {
    std::vector<Plane> planes;
    State state = State::dequeued;
    std::uint32_t sequence = 0;
    bool isDamaged = false;
    std::int64_t time = 0;
  };

  int control(unsigned long request, void* argument);
  int controlLocked(unsigned long request, void* argument);
  int enumerate(unsigned long request, void* argument);
  int exchangeFormat(unsigned long request, v4l2_format& format);
  void adjust(v4l2_pix_format& pix) const;
  int sources(unsigned long request, void* argument);
  int regions(unsigned long request, v4l2_ext_controls& controls);
  bool isMultiPlanar() const { return (deviceCaps & V4L2_CAP_VIDEO_CAPTURE_MPLANE) != 0; }
  std::uint32_t bufferType() const {
    return isMultiPlanar() ? V4L2_BUF_TYPE_VIDEO_CAPTURE_MPLANE : V4L2_BUF_TYPE_VIDEO_CAPTURE;
  }
  std::vector<std::size_t> planeSizes() const;
  int queryBuffer(v4l2_buffer& buffer);
  int setRate(v4l2_streamparm& parameters);
  int requestBuffers(v4l2_requestbuffers& request);
  int queue(v4l2_buffer& buffer);
  int dequeue(v4l2_buffer& buffer);
  int stream(bool on);
  int controls_(unsigned long request, void* argument);
  void advance();
  int fail(int code, const char* violation = nullptr);
  const Format* formatOf(std::uint32_t pixelFormat) const;

  const std::string path_;
  mutable std::mutex mutex_;
  std::vector<std::string> violations_;
  bool isGone_ = false;
  bool isStalled_ = false;
  bool isHeld_ = false;
  std::condition_variable released_;
  int openErrno_ = 0;
  int formatErrno_ = 0;
  int dequeueFailures_ = 0;
  int dequeueErrno_ = 0;
  bool damagesNext_ = false;
  std::uint32_t skips_ = 0;
  int openCount_ = 0;
  int openings_ = 0;
  int input_ = 0;
  bool isSubscribed_ = false;
  bool hasEvent_ = false;
  std::vector<v4l2_control> settings_;
  int starts_ = 0;
  v4l2_pix_format chosen_{};
  std::uint32_t rate_ = 30;
  std::vector<Buffer> buffers_;
  std::deque<std::uint32_t> queued_;
  std::deque<std::uint32_t> filled_;
  bool isStreaming_ = false;
  std::uint32_t sequence_ = 0;
  std::chrono::steady_clock::time_point nextFrame_;
};

}  // namespace tavrel::test
