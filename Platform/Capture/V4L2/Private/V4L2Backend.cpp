#include "Platform/Capture/V4L2/Private/V4L2Backend.h"

#include <fcntl.h>
#include <fmt/format.h>
#include <pthread.h>
#include <sys/eventfd.h>
#include <sys/inotify.h>
#include <unistd.h>

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <chrono>
#include <utility>

#include "Platform/Capture/Private/CameraModes.h"
#include "Platform/Capture/Private/CaptureTimes.h"
#include "Platform/Capture/V4L2/Private/V4L2Driver.h"

namespace tavrel {
namespace {

constexpr std::string_view kNodePrefix = "video";
/// Rights on a new node are set some time after it appears, without an event on every system.
constexpr std::chrono::seconds kSecondLook(1);

std::optional<int> nodeNumber(const std::string& name) {
  if (!name.starts_with(kNodePrefix)) return std::nullopt;
  int number = 0;
  const char* end = name.data() + name.size();
  const auto [stop, error] = std::from_chars(name.data() + kNodePrefix.size(), end, number);
  if (error != std::errc() || stop != end) return std::nullopt;
  return number;
}

}  // namespace

V4L2Backend::V4L2Backend(V4L2SystemCalls calls, std::filesystem::path folder)
    : calls_(std::move(calls)), folder_(std::move(folder)) {}

V4L2Backend::~V4L2Backend() { V4L2Backend::stop(); }

void V4L2Backend::start(CaptureBackendObserver& observer) {
  observer_ = &observer;
  const int notifier = inotify_init1(IN_NONBLOCK | IN_CLOEXEC);
  // Watched before the first look, so that nothing falls between.
  if (notifier >= 0) inotify_add_watch(notifier, folder_.c_str(), IN_CREATE | IN_DELETE | IN_ATTRIB | IN_MOVE);
  scan(std::nullopt);
  wake_ = eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK);
  if (notifier < 0 || wake_ < 0) {
    if (notifier >= 0) ::close(notifier);
    return;
  }
  thread_ = std::jthread([this, notifier](const std::stop_token& stop) { watch(stop, notifier); });
}

void V4L2Backend::stop() {
  if (thread_.joinable()) {
    thread_.request_stop();
    const std::uint64_t one = 1;
    [[maybe_unused]] const auto written = write(wake_, &one, sizeof one);
    thread_.join();
  }
  if (wake_ >= 0) ::close(std::exchange(wake_, -1));
  drivers_.clear();
}

void V4L2Backend::watch(const std::stop_token& stop, int notifier) {
  using Clock = std::chrono::steady_clock;
  pthread_setname_np(pthread_self(), "tavrel.v4l2dev");
  std::set<std::string> changed;  // and to be looked at again
  Clock::time_point secondLook;
  while (!stop.stop_requested()) {
    std::array<pollfd, 2> descriptors = {pollfd{notifier, POLLIN, 0}, pollfd{wake_, POLLIN, 0}};
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(secondLook - Clock::now()).count();
    const int ready = ::poll(descriptors.data(), descriptors.size(),
                             changed.empty() ? -1 : static_cast<int>(std::max<std::int64_t>(left, 0)));
    if (stop.stop_requested()) break;
    if (ready < 0 && errno != EINTR) break;
    alignas(inotify_event) std::array<char, 4096> events{};
    std::set<std::string> found;
    bool isOverflown = false;
    for (ssize_t size = 0; (size = read(notifier, events.data(), events.size())) > 0;) {
      for (ssize_t at = 0; at < size;) {
        const auto* event = static_cast<const inotify_event*>(static_cast<const void*>(events.data() + at));
        if (event->len > 0 && nodeNumber(event->name)) found.insert(folder_ / event->name);
        isOverflown |= (event->mask & IN_Q_OVERFLOW) != 0;
        at += static_cast<ssize_t>(sizeof(inotify_event) + event->len);
      }
    }
    if (isOverflown) scan(std::nullopt);
    if (!found.empty()) {
      scan(found);
      changed.merge(found);
      secondLook = Clock::now() + kSecondLook;
    } else if (!changed.empty() && Clock::now() >= secondLook) {
      scan(std::exchange(changed, {}));
    }
  }
  ::close(notifier);
}

std::vector<std::string> V4L2Backend::nodePaths() const {
  std::vector<std::pair<int, std::string>> found;
  std::error_code error;
  for (const auto& entry : std::filesystem::directory_iterator(folder_, error)) {
    if (const auto number = nodeNumber(entry.path().filename().string())) {
      found.emplace_back(*number, entry.path().string());
    }
  }
  std::sort(found.begin(), found.end());
  std::vector<std::string> paths;
  paths.reserve(found.size());
  for (auto& [number, path] : found) paths.push_back(std::move(path));
  return paths;
}

std::shared_ptr<V4L2Driver> V4L2Backend::driverAt(const std::string& path) const {
  const auto found = std::ranges::find_if(drivers_, [&](const auto& driver) { return driver->path() == path; });
  return found != drivers_.end() ? *found : nullptr;
}

void V4L2Backend::scan(const std::optional<std::set<std::string>>& changed) {
  const std::vector<std::string> paths = nodePaths();
  const auto isUntouched = [&](const std::string& path) { return changed && !changed->contains(path); };
  std::vector<std::shared_ptr<V4L2Driver>> others;
  for (const std::string& path : paths) {
    if (auto driver = isUntouched(path) ? driverAt(path) : nullptr) others.push_back(std::move(driver));
  }
  std::vector<std::shared_ptr<V4L2Driver>> present;
  std::vector<std::shared_ptr<V4L2Driver>> added;
  for (const std::string& path : paths) {
    auto known = driverAt(path);
    if (isUntouched(path)) {
      if (known) present.push_back(std::move(known));
      continue;
    }
    auto driver = probe(path, others);
    if (!driver) continue;
    // The same identity at the same node is the same camera.
    if (known && known->description().uniqueID == driver->description().uniqueID) {
      driver = std::move(known);
    } else {
      added.push_back(driver);
    }
    others.push_back(driver);
    present.push_back(std::move(driver));
  }
  {
    const std::lock_guard lock(mutex_);
    const auto isGone = [&](const std::string& path) { return std::ranges::find(paths, path) == paths.end(); };
    std::erase_if(denied_, isGone);
    std::erase_if(unreadable_, [&](const auto& each) { return isGone(each.first); });
    hasCameras_ = !present.empty();
  }
  const auto before = std::exchange(drivers_, present);
  for (const auto& driver : before) {
    if (std::find(present.begin(), present.end(), driver) == present.end()) observer_->deviceDisappeared(driver);
  }
  for (auto& driver : added) observer_->deviceAppeared(std::move(driver));
}

std::shared_ptr<V4L2Driver> V4L2Backend::probe(const std::string& path,
                                               const std::vector<std::shared_ptr<V4L2Driver>>& others) {
  std::optional<V4L2Capabilities> capabilities;
  {
    const V4L2Descriptor node(calls_, calls_.open(path.c_str(), O_RDONLY | O_NONBLOCK | O_CLOEXEC));
    const int code = node.isOpen() ? 0 : errno;
    {
      const std::lock_guard lock(mutex_);
      if (code == EACCES || code == EPERM) {
        denied_.insert(path);
      } else {
        denied_.erase(path);
      }
    }
    // A camera that another program holds alone stays the device that it was.
    if (code != 0) return code == EBUSY ? driverAt(path) : nullptr;
    capabilities = probeV4L2(node);
  }
  {
    const std::lock_guard lock(mutex_);
    unreadable_.erase(path);
    if (!capabilities) return nullptr;
    if (capabilities->modes.empty()) {
      if (!capabilities->unreadable.empty()) {
        unreadable_.insert({path, unreadableError(capabilities->card, capabilities->unreadable)});
      }
      return nullptr;
    }
  }
  CaptureDeviceDescription description;
  const std::string serial = calls_.serialNumber ? calls_.serialNumber(path) : std::string();
  const std::string base = fmt::format("v4l2:{}:{}", serial.empty() ? capabilities->bus : serial, capabilities->card);
  description.uniqueID = base;
  const auto isTaken = [&](const auto& driver) { return driver->description().uniqueID == description.uniqueID; };
  for (int count = 2; std::any_of(others.begin(), others.end(), isTaken); ++count) {
    description.uniqueID = fmt::format("{}#{}", base, count);
  }
  description.localizedName = capabilities->card;
  description.backendName = name();
  description.position = capabilities->position;
  description.mountRotation = mountRotationOf(capabilities->rotation);
  description.formats = deviceFormatsOf(capabilities->modes, capabilities->largestZoom());
  return std::make_shared<V4L2Driver>(calls_, path, std::move(description), std::move(*capabilities));
}

CaptureAuthorizationStatus V4L2Backend::authorizationStatus(MediaType mediaType) {
  const std::lock_guard lock(mutex_);
  const bool isDenied = mediaType == MediaType::video && !denied_.empty();
  return isDenied ? CaptureAuthorizationStatus::denied : CaptureAuthorizationStatus::authorized;
}

std::optional<Error> V4L2Backend::problem() const {
  const std::lock_guard lock(mutex_);
  if (!denied_.empty()) return v4l2Error(EACCES, "cannot open " + *denied_.begin());
  if (hasCameras_ || unreadable_.empty()) return std::nullopt;
  return unreadable_.begin()->second;
}

}  // namespace tavrel
