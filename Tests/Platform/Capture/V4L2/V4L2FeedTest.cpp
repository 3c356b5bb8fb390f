#include "Platform/Capture/V4L2/Private/V4L2Feed.h"

#include <gmock/gmock.h>

#include <cerrno>
#include <cstring>
#include <map>
#include <set>

#include "Support/CaptureTestSupport.h"

namespace tavrel::test {
namespace {

using ::testing::HasSubstr;

std::uint32_t byteCountOf(const v4l2_pix_format& pix) {
  return pix.bytesperline * pix.height * (pix.pixelformat == V4L2_PIX_FMT_NV12 ? 3 : 2) / 2;
}

/// A video node that takes pictures, played.
class FakeOutputNode {
 public:
  std::uint32_t abilities = V4L2_CAP_VIDEO_OUTPUT | V4L2_CAP_READWRITE;
  std::set<std::uint32_t> pixelFormats = {V4L2_PIX_FMT_NV12, V4L2_PIX_FMT_YUYV, V4L2_PIX_FMT_XBGR32};
  std::uint32_t padding = 0;  ///< bytes that it adds to each row

  V4L2SystemCalls calls() {
    V4L2SystemCalls calls;
    calls.open = [this](const char*, int) {
      const std::lock_guard lock(mutex_);
      if (writeErrno_ == ENODEV) return errno = ENOENT, -1;
      ++openings_;
      return 7;
    };
    calls.close = [](int) { return 0; };
    calls.ioctl = [this](int, unsigned long request, void* argument) { return control(request, argument); };
    calls.write = [this](int, const void* bytes, std::size_t count) -> ssize_t {
      const std::lock_guard lock(mutex_);
      if (writeErrno_ != 0) return errno = writeErrno_, -1;
      const auto* first = static_cast<const std::uint8_t*>(bytes);
      pictures_.emplace_back(first, first + count);
      return static_cast<ssize_t>(count);
    };
    return calls;
  }
  void failWrites(int code) {
    const std::lock_guard lock(mutex_);
    writeErrno_ = code;
  }
  std::vector<std::vector<std::uint8_t>> pictures() const {
    const std::lock_guard lock(mutex_);
    return pictures_;
  }
  int openings() const {
    const std::lock_guard lock(mutex_);
    return openings_;
  }
  v4l2_pix_format format() const {
    const std::lock_guard lock(mutex_);
    return format_;
  }
  v4l2_fract interval() const {
    const std::lock_guard lock(mutex_);
    return interval_;
  }

 private:
  int control(unsigned long request, void* argument) {
    const std::lock_guard lock(mutex_);
    if (request == VIDIOC_QUERYCAP) {
      static_cast<v4l2_capability*>(argument)->capabilities = abilities;
      return 0;
    }
    if (request == VIDIOC_S_FMT) {
      v4l2_pix_format& pix = static_cast<v4l2_format*>(argument)->fmt.pix;
      // As drivers do: what it does not have is replaced.
      if (!pixelFormats.contains(pix.pixelformat)) pix.pixelformat = V4L2_PIX_FMT_RGB565;
      pix.bytesperline += padding;
      // Whole pages.
      pix.sizeimage = (byteCountOf(pix) + 4095) / 4096 * 4096;
      format_ = pix;
      return 0;
    }
    if (request == VIDIOC_S_PARM) {
      interval_ = static_cast<v4l2_streamparm*>(argument)->parm.output.timeperframe;
      return 0;
    }
    return errno = ENOTTY, -1;
  }

  mutable std::mutex mutex_;
  std::vector<std::vector<std::uint8_t>> pictures_;
  v4l2_pix_format format_{};
  v4l2_fract interval_{};
  int writeErrno_ = 0;
  int openings_ = 0;
};

std::shared_ptr<const PixelBufferSnapshot> grey(int width, int height, std::uint8_t level) {
  const auto buffer =
      PixelBuffer::create(static_cast<std::size_t>(width), static_cast<std::size_t>(height), PixelFormat::bgra32);
  (*buffer)->lockBaseAddress(PixelBufferLock::readWrite);
  std::memset((*buffer)->baseAddress(), level, (*buffer)->bytesPerRow() * (*buffer)->height());
  (*buffer)->unlockBaseAddress(PixelBufferLock::readWrite);
  return (*buffer)->snapshot();
}

const CameraFeed::Description kDescription = {
    .name = "feed",
    .width = 8,
    .height = 4,
    .framesPerSecond = 25,
    .formats = {CameraFeedFormat::yuy2, CameraFeedFormat::nv12, CameraFeedFormat::bgra}};

TEST(V4L2FeedTest, WritesPicturesInTheFirstLayoutOfTheNode) {
  struct Case {
    std::set<std::uint32_t> offered;
    std::uint32_t chosen;
    std::size_t grey;  // where the level of the second row's first pixel lies
  };
  constexpr std::uint32_t kPadding = 16;
  const Case cases[] = {{{V4L2_PIX_FMT_NV12, V4L2_PIX_FMT_YUYV}, V4L2_PIX_FMT_YUYV, 8 * 2 + kPadding},
                        {{V4L2_PIX_FMT_NV12, V4L2_PIX_FMT_XBGR32}, V4L2_PIX_FMT_NV12, 8 + kPadding},
                        {{V4L2_PIX_FMT_BGR32}, V4L2_PIX_FMT_BGR32, 8 * 4 + kPadding}};
  for (const Case& expected : cases) {
    FakeOutputNode node;
    node.pixelFormats = expected.offered;
    node.padding = kPadding;
    const auto feed = V4L2Feed::create("/dev/video7", kDescription, {}, node.calls());
    ASSERT_TRUE(feed.has_value()) << feed.error().description;
    EXPECT_EQ(node.format().pixelformat, expected.chosen);
    EXPECT_EQ(node.interval().denominator, 25 * node.interval().numerator);
    (*feed)->show(grey(8, 4, 255));
    ASSERT_TRUE(eventually([&] { return !node.pictures().empty(); }));
    const auto picture = node.pictures().front();
    ASSERT_EQ(picture.size(), byteCountOf(node.format())) << "what a reader takes for one picture";
    const bool isBGRA = expected.chosen == V4L2_PIX_FMT_BGR32;
    EXPECT_EQ(picture.at(expected.grey), isBGRA ? 255 : 235) << "white in limited range";
    EXPECT_EQ(picture.at(expected.grey - 1), 0) << "the row's padding";
  }
}

TEST(V4L2FeedTest, RepeatsTheLastPictureAndLeavesOutWhatTheNodeDoesNotTake) {
  FakeOutputNode node;
  const auto feed = V4L2Feed::create("/dev/video7", kDescription, {}, node.calls());
  ASSERT_TRUE(feed.has_value());
  EXPECT_TRUE((*feed)->hasReaders());
  (*feed)->show(grey(8, 4, 0));
  ASSERT_TRUE(eventually([&] { return node.pictures().size() >= 5; }));
  EXPECT_EQ(node.pictures().back(), node.pictures().front());
  node.failWrites(EAGAIN);
  ASSERT_TRUE(eventually([&] { return (*feed)->counts().missed >= 3; }));
  node.failWrites(0);
  const std::size_t before = node.pictures().size();
  ASSERT_TRUE(eventually([&] { return node.pictures().size() > before; }));
  EXPECT_EQ(node.openings(), 1);
  EXPECT_EQ((*feed)->counts().shown, 1U);
}

TEST(V4L2FeedTest, GoesOnWhenTheNodeIsBack) {
  FakeOutputNode node;
  std::mutex mutex;
  std::vector<std::string> failures;
  const auto feed = V4L2Feed::create("/dev/video7", kDescription,
                                     {{},
                                      [&](const Error& error) {
                                        const std::lock_guard lock(mutex);
                                        failures.push_back(error.description);
                                      }},
                                     node.calls());
  ASSERT_TRUE(feed.has_value());
  (*feed)->show(grey(8, 4, 9));
  node.failWrites(ENODEV);
  ASSERT_TRUE(eventually([&] { return !(*feed)->hasReaders(); }));
  node.failWrites(0);
  ASSERT_TRUE(eventually([&] { return node.openings() == 2; }));
  const std::size_t before = node.pictures().size();
  ASSERT_TRUE(eventually([&] { return node.pictures().size() > before; }));
  const std::lock_guard lock(mutex);
  EXPECT_THAT(failures, ::testing::ElementsAre(HasSubstr("/dev/video7 takes no picture")));
}

TEST(V4L2FeedTest, RefusesNodesThatTakeNoPictures) {
  FakeOutputNode camera;
  camera.abilities = V4L2_CAP_VIDEO_CAPTURE | V4L2_CAP_STREAMING;
  auto refused = V4L2Feed::create("/dev/video7", kDescription, {}, camera.calls());
  ASSERT_FALSE(refused.has_value());
  EXPECT_THAT(refused.error().description, HasSubstr("expected the node of a loopback camera"));
  FakeOutputNode other;
  other.pixelFormats = {};
  refused = V4L2Feed::create("/dev/video7", kDescription, {}, other.calls());
  ASSERT_FALSE(refused.has_value());
  EXPECT_THAT(refused.error().description, HasSubstr("8x4"));
}

/// When a source's pictures go out, each with how late; in intervals of the feed.
struct Outgoing {
  std::vector<double> times;
  double latest = 0;
  int repeated = 0;
};

Outgoing pace(const std::vector<double>& arrivals, double end) {
  constexpr double kInterval = 1e9 / 30;
  FeedPacer pacer(30);
  Outgoing outgoing;
  double waiting = -1;  // since when; negative: none
  std::size_t next = 0;
  for (double now = 100; now < 100 + end; now += 0.01) {
    const auto time = static_cast<std::int64_t>(now * kInterval);
    while (next < arrivals.size() && 100 + arrivals[next] <= now) {
      pacer.came(time);
      waiting = now;
      ++next;
    }
    const bool isNew = waiting >= 0;
    if (next == 0 || pacer.due(isNew) > time) continue;
    outgoing.times.push_back(now - 100);
    if (isNew) outgoing.latest = std::max(outgoing.latest, now - waiting);
    outgoing.repeated += isNew ? 0 : 1;
    pacer.sent(time, isNew);
    waiting = -1;
  }
  return outgoing;
}

TEST(FeedPacerTest, HandsOnAtOnceWhatComesAtTheRateAndThinsOutWhatComesFaster) {
  std::vector<double> steady;
  std::vector<double> fast;
  std::vector<double> slow;
  for (int i = 0; i < 300; ++i) {
    steady.push_back(i + 0.2 * (i * 7 % 5 - 2) / 2);  // jitter of a fifth to both sides
    fast.push_back(i / 2.0);
    slow.push_back(i * 2.0);
  }
  const Outgoing atRate = pace(steady, 299);
  EXPECT_EQ(atRate.repeated, 0);
  EXPECT_LT(atRate.latest, 0.02);
  EXPECT_NEAR(static_cast<double>(atRate.times.size()), 299, 1);
  const Outgoing thinned = pace(fast, 149);
  EXPECT_EQ(thinned.repeated, 0);
  EXPECT_NEAR(static_cast<double>(thinned.times.size()), 149, 8);
  const Outgoing filled = pace(slow, 299);
  EXPECT_LT(filled.latest, 0.02);
  EXPECT_NEAR(static_cast<double>(filled.times.size()), 299, 2);
}

TEST(FeedPacerTest, RepeatsAtTheRateWhenNothingComes) {
  const Outgoing outgoing = pace({0, 1, 2}, 33.6);
  ASSERT_EQ(outgoing.times.size(), 3U + 31U);
  EXPECT_NEAR(outgoing.times[3], 3.5, 0.02);
  EXPECT_NEAR(outgoing.times.back() - outgoing.times[3], 30, 0.4);
}

}  // namespace
}  // namespace tavrel::test
