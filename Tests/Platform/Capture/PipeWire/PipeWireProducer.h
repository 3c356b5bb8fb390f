#pragma once

#include <pipewire/pipewire.h>
#include <spa/buffer/meta.h>
#include <spa/param/video/raw.h>
#include <spa/pod/builder.h>

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

namespace tavrel::test {

/// A camera node that the test plays, with buffers of its own: memory files, or such as pass for memory of a device.
class PipeWireProducer {
 public:
  struct Property {
    std::uint32_t id;
    const char* description;
    std::vector<int> values;  ///< two: the ends of a range; else alternatives; none: a switch
  };
  struct Sizes {
    spa_rectangle least;
    spa_rectangle most;
    spa_rectangle step;
  };
  struct Rates {
    spa_fraction least;
    spa_fraction most;
  };
  struct Kind {
    std::string name;
    spa_video_format format = SPA_VIDEO_FORMAT_BGRx;  ///< or NV12
    bool isH264 = false;
    int width = 64;
    int height = 48;
    std::vector<std::int64_t> modifiers = {};  ///< of device memory that is offered first
    bool isPlain = true;                       ///< ordinary memory is offered, too
    /// Has what is agreed on leave the modifier open, and takes the last one.
    bool choosesModifier = false;
    bool isUpsideDown = false;  ///< the picture in the block, as the modifier says
    int bufferCount = 8;
    bool isDmaBuf = false;  ///< without modifiers, too
    bool saysStride = true;
    std::size_t padding = 0;  ///< bytes after each row
    /// Row and block of a picture in one block, where they are not those of BGRx or NV12.
    std::size_t rowBytes = 0;
    std::size_t blockBytes = 0;
    spa_video_color_range range = SPA_VIDEO_COLOR_RANGE_UNKNOWN;
    /// Any size between them, of steps unless that is 0, where there are such; pictures are `width` by `height` at
    /// first.
    std::optional<Sizes> sizes = {};
    /// Rates between two; none: `framesPerSecond` alone. That is 0 of one without a steady rate, up to `mostPerSecond`.
    std::optional<Rates> rates = {};
    int framesPerSecond = 30;
    int mostPerSecond = 0;
    std::size_t offset = 0;  ///< of the picture in its block
    std::optional<spa_region> crop = {};
    std::uint32_t transform = SPA_META_TRANSFORMATION_None;
    std::vector<Property> properties = {};
    std::map<std::string, std::string> nodeProperties = {};
    /// Paints a picture in one block.
    std::function<void(std::uint8_t* bytes, int width, int height, std::size_t stride)> paint = {};
    /// Fills a plane instead; how many bytes it has then.
    std::function<std::size_t(std::size_t plane, std::uint8_t* bytes, std::size_t stride, std::uint32_t sequence)>
        draw = {};
    /// What else it does to a buffer.
    std::function<void(spa_buffer& buffer, spa_meta_header& header, std::uint32_t sequence)> spoil = {};
  };

  explicit PipeWireProducer(Kind kind);
  PipeWireProducer(const PipeWireProducer&) = delete;
  PipeWireProducer& operator=(const PipeWireProducer&) = delete;
  ~PipeWireProducer();

  /// What it does from now on: another picture size or format, which is agreed on anew.
  void change(spa_video_format format, int width, int height);
  void pause(bool isPaused) { isPaused_ = isPaused; }
  /// The modifier that was agreed on; nothing for ordinary memory.
  std::optional<std::int64_t> modifier() const;
  /// Properties that somebody has set, in their order.
  std::vector<std::pair<std::uint32_t, int>> settings() const;
  /// Pictures that it had no buffer for, since it began.
  int missed() const { return missed_; }

 private:
  static const pw_stream_events kEvents;

  std::size_t planeCount() const { return kind_.format == SPA_VIDEO_FORMAT_NV12 && kind_.rowBytes == 0 ? 2 : 1; }
  std::size_t stride() const;
  std::size_t blockSize() const {
    if (kind_.blockBytes > 0) return kind_.blockBytes;
    return kind_.offset + stride() * static_cast<std::size_t>(kind_.height);
  }
  const spa_pod* formatOf(spa_pod_builder& builder, bool hasModifiers,
                          std::optional<std::int64_t> chosen = std::nullopt) const;
  void choose(const spa_pod_prop& modifiers);
  const spa_pod* propertyOf(spa_pod_builder& builder, const Property& property) const;
  void agree(const spa_pod& format);
  void note(const spa_pod& properties);
  void allocate(pw_buffer& buffer) const;
  void process();

  Kind kind_;  // on the loop's thread, once it runs
  std::atomic<bool> isPaused_ = false;
  pw_thread_loop* loop_ = nullptr;
  pw_stream* stream_ = nullptr;
  spa_hook listener_{};
  spa_source* timer_ = nullptr;
  std::uint32_t sequence_ = 0;
  std::atomic<int> missed_ = 0;
  mutable std::mutex mutex_;
  std::optional<std::int64_t> modifier_;
  std::vector<std::pair<std::uint32_t, int>> settings_;
};

}  // namespace tavrel::test
