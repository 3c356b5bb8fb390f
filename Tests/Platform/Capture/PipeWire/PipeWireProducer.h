#pragma once

#include <pipewire/pipewire.h>
#include <spa/buffer/meta.h>
#include <spa/param/video/raw.h>
#include <spa/pod/builder.h>

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
  struct Kind {
    std::string name;
    spa_video_format format = SPA_VIDEO_FORMAT_BGRx;  ///< or NV12
    bool isH264 = false;
    int width = 64;
    int height = 48;
    std::vector<std::int64_t> modifiers = {};  ///< of device memory that is offered first
    bool isPlain = true;                       ///< ordinary memory is offered, too
    bool isDmaBuf = false;                     ///< without modifiers, too
    bool saysStride = true;
    std::size_t padding = 0;  ///< bytes after each row
    std::size_t offset = 0;   ///< of the picture in its block
    std::optional<spa_region> crop = {};
    std::uint32_t transform = SPA_META_TRANSFORMATION_None;
    std::vector<Property> properties = {};
    std::map<std::string, std::string> nodeProperties = {};
    /// Fills a plane; how many bytes it has then.
    std::function<std::size_t(std::size_t plane, std::uint8_t* bytes, std::size_t stride, std::uint32_t sequence)>
        draw = {};
  };

  explicit PipeWireProducer(Kind kind);
  PipeWireProducer(const PipeWireProducer&) = delete;
  PipeWireProducer& operator=(const PipeWireProducer&) = delete;
  ~PipeWireProducer();

  /// The modifier that was agreed on; nothing for ordinary memory.
  std::optional<std::int64_t> modifier() const;
  /// Properties that somebody has set, in their order.
  std::vector<std::pair<std::uint32_t, int>> settings() const;

 private:
  static const pw_stream_events kEvents;

  std::size_t planeCount() const { return kind_.format == SPA_VIDEO_FORMAT_NV12 ? 2 : 1; }
  std::size_t stride() const;
  std::size_t blockSize() const { return kind_.offset + stride() * static_cast<std::size_t>(kind_.height); }
  const spa_pod* formatOf(spa_pod_builder& builder, bool hasModifiers) const;
  const spa_pod* propertyOf(spa_pod_builder& builder, const Property& property) const;
  void agree(const spa_pod& format);
  void note(const spa_pod& properties);
  void allocate(pw_buffer& buffer) const;
  void process();

  const Kind kind_;
  pw_thread_loop* loop_ = nullptr;
  pw_stream* stream_ = nullptr;
  spa_hook listener_{};
  spa_source* timer_ = nullptr;
  std::uint32_t sequence_ = 0;
  mutable std::mutex mutex_;
  std::optional<std::int64_t> modifier_;
  std::vector<std::pair<std::uint32_t, int>> settings_;
};

}  // namespace tavrel::test
