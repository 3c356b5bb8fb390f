#pragma once

#include <linux/videodev2.h>

#include <condition_variable>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <thread>
#include <vector>

#include "Platform/Capture/CameraFeed.h"
#include "Platform/Capture/Private/FeedPictures.h"
#include "Platform/Capture/V4L2/Private/V4L2Probe.h"

namespace tavrel {

/// A feed into the output side of a video node, such as v4l2loopback's, by `write`. What the node takes slower than the
/// feed's rate is left out. A node that fails is opened anew every two seconds.
class V4L2Feed : public CameraFeed {
 public:
  static Expected<std::unique_ptr<CameraFeed>> create(std::string path, const Description& description, Events events,
                                                      V4L2SystemCalls calls = V4L2SystemCalls::real());
  ~V4L2Feed() override;

  bool hasReaders() const override;
  int readerCount() const override { return hasReaders() ? 1 : 0; }
  void show(std::shared_ptr<const PixelBufferSnapshot> picture) override;
  Counts counts() const override { return pictures_.counts(); }

 private:
  V4L2Feed(std::string path, Description description, Events events, V4L2SystemCalls calls);
  Expected<void> open();
  bool chooseFormat(const V4L2Descriptor& node, CameraFeedFormat format);
  void loop(const std::stop_token& stop);
  std::optional<Error> writePicture(const PixelBufferSnapshot& picture);
  void fail(const Error& error);

  const std::string path_;
  const Description description_;
  const Events events_;
  const V4L2SystemCalls calls_;
  FeedPictures pictures_;
  // Of the thread, once it runs.
  std::unique_ptr<V4L2Descriptor> node_;
  CameraFeedFormat format_ = CameraFeedFormat::yuy2;
  std::size_t stride_ = 0;
  std::vector<std::uint8_t> bytes_;

  mutable std::mutex mutex_;
  std::condition_variable_any wake_;
  bool hasPicture_ = false;  // a new one
  bool isOpen_ = false;
  std::jthread thread_;
};

}  // namespace tavrel
