#pragma once

#include <filesystem>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "Platform/Capture/Private/CaptureBackend.h"
#include "Platform/Capture/V4L2/Private/V4L2SystemCalls.h"

namespace tavrel {

class V4L2Driver;

/// Cameras as the kernel's video nodes. New and removed nodes are noticed by inotify on their folder, on a thread
/// ("tavrel.v4l2dev"); only these are opened then, and for reading. Capture nodes with mmap streaming are cameras here,
/// with one plane of memory or several.
///
/// Identity: "v4l2:" and the USB serial number with maker and product, else the bus path, then the card's name; a
/// second node of the same has "#2" at its end.
class V4L2Backend : public CaptureBackend {
 public:
  explicit V4L2Backend(V4L2SystemCalls calls = V4L2SystemCalls::real(), std::filesystem::path folder = "/dev");
  ~V4L2Backend() override;

  const char* name() const override { return "v4l2"; }
  void start(CaptureBackendObserver& observer) override;
  void stop() override;
  CaptureAuthorizationStatus authorizationStatus(MediaType mediaType) override;
  std::optional<Error> problem() const override;

 private:
  void watch(const std::stop_token& stop, int notifier);
  /// Looks at the nodes of these names, or at all.
  void scan(const std::optional<std::set<std::string>>& changed);
  std::vector<std::string> nodePaths() const;
  /// A driver for the node; nullptr when it is no camera. `others` are those that it must not be confused with.
  std::shared_ptr<V4L2Driver> probe(const std::string& path, const std::vector<std::shared_ptr<V4L2Driver>>& others);
  std::shared_ptr<V4L2Driver> driverAt(const std::string& path) const;

  const V4L2SystemCalls calls_;
  const std::filesystem::path folder_;
  CaptureBackendObserver* observer_ = nullptr;
  std::vector<std::shared_ptr<V4L2Driver>> drivers_;  // on one thread at a time: first start's, then the watch's
  mutable std::mutex mutex_;
  std::set<std::string> denied_;             // paths of nodes that may not be opened
  std::map<std::string, Error> unreadable_;  // by the path: cameras of no format of ours
  bool hasCameras_ = false;
  int wake_ = -1;
  std::jthread thread_;
};

}  // namespace tavrel
