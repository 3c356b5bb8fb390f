#include "Platform/Capture/PipeWire/Private/PipeWireBackend.h"

#include <fmt/format.h>
#include <pipewire/extensions/metadata.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <map>
#include <utility>
#include <vector>

#include "Platform/Capture/CaptureError.h"
#include "Platform/Capture/PipeWire/Private/PipeWireControls.h"
#include "Platform/Capture/PipeWire/Private/PipeWireDriver.h"
#include "Platform/Capture/PipeWire/Private/PipeWireNode.h"
#include "Platform/Dispatch/DispatchQueue.h"

namespace tavrel {
namespace {

constexpr std::chrono::seconds kFirstLook(3);
constexpr std::int64_t kRetrySeconds = 2;
constexpr timespec kAtOnce{0, 1};

}  // namespace

/// The connection's view of the daemon's nodes. All but construction, `start` and destruction happens on the loop's
/// thread; the observer is told on a queue, so that it is called without the loop's lock.
class PipeWireBackend::Registry {
 public:
  Registry(CaptureBackendObserver& observer, const Reach& reach) : observer_(observer), reach_(reach) {}

  ~Registry() {
    if (reach_.gate) reach_.gate->giveUp();
    line_->close();
    if (loop_) {
      loop_->stop();
      dropConnection();
      if (retry_) pw_loop_destroy_source(loop_->loop(), retry_);
    }
    loop_ = nullptr;
    queue_->shutDown();
  }

  void start() {
    auto loop = PipeWireLoop::create("tavrel.pipewire", reach_.gate);
    if (!loop) return;
    loop_ = std::move(*loop);
    {
      const PipeWireLoop::Lock lock(*loop_);
      retry_ = pw_loop_add_timer(loop_->loop(), retried, this);
      line_->open(loop_->loop(), this, setProperties);
    }
    if (reach_.gate) {
      reach_.gate->ask([this] {
        const PipeWireLoop::Lock lock(*loop_);
        tryIn(kAtOnce);
      });
      reach_.gate->await(kFirstLook);
    }
    {
      const PipeWireLoop::Lock lock(*loop_);
      if (!isConnected_) connect();
      if (isConnected_)
        loop_->waitFor(std::chrono::nanoseconds(kFirstLook).count(), [this] { return hasLooked_ || !isConnected_; });
    }
    // The devices found so far are being told about on the queue.
    queue_->sync([] {});
  }

  /// Whether a daemon took the connection and says nothing.
  bool isWaitedFor() const {
    if (!loop_) return false;
    const PipeWireLoop::Lock lock(*loop_);
    return isConnected_ && !hasLooked_;
  }

  /// What is said where there are cameras, and all of them such as we cannot read.
  std::optional<Error> unreadable() const {
    const PipeWireLoop::Lock lock(*loop_);
    std::optional<Error> found;
    for (const auto& [id, device] : devices_) {
      const PipeWireNode& node = device.node;
      if (device.driver && node.kind() == PipeWireNodeKind::camera) return std::nullopt;
      if (device.isUnreadable)
        found = unreadableError(pipeWireNameOf(node.properties()), fmt::format("{}", fmt::join(node.formats(), ", ")));
    }
    return found;
  }

 private:
  struct Device {
    Device(const Registry& owner, std::uint32_t id, PipeWireNodeKind kind)
        : node(owner.loop_->core(), owner.registry_, id, kind, owner.line_) {}
    PipeWireNode node;
    std::shared_ptr<PipeWireDriver> driver = nullptr;
    bool isUnreadable = false;
  };

  static const pw_core_events kCoreEvents;
  static const pw_registry_events kRegistryEvents;

  void connect() {
    if (!loop_->connect()) return tryIn({kRetrySeconds, 0});
    isConnected_ = true;
    pw_core_add_listener(loop_->core(), &coreListener_, &kCoreEvents, this);
    registry_ = pw_core_get_registry(loop_->core(), PW_VERSION_REGISTRY, 0);
    pw_registry_add_listener(registry_, &registryListener_, &kRegistryEvents, this);
    hasLooked_ = false;
    lookSequence_ = pw_core_sync(loop_->core(), PW_ID_CORE, 0);
    looksLeft_ = 2;  // the nodes, then what they say
    if (wasLost_) queue_->async([this] { observer_.servicesWereReset(); });
  }

  void tryIn(timespec delay) { pw_loop_update_timer(loop_->loop(), retry_, &delay, nullptr, false); }

  static void retried(void* data, std::uint64_t) {
    auto* self = static_cast<Registry*>(data);
    if (self->isLost_) {
      self->dropConnection();
      self->isLost_ = false;
    }
    if (!self->isConnected_) self->connect();
  }

  /// Forgets the daemon and its devices.
  void dropConnection() {
    for (auto& [id, device] : devices_) forget(device);
    devices_.clear();
    defaults_->unwatch();
    if (registry_) {
      spa_hook_remove(&registryListener_);
      pw_proxy_destroy(reinterpret_cast<pw_proxy*>(registry_));
      registry_ = nullptr;
    }
    if (isConnected_) spa_hook_remove(&coreListener_);
    loop_->disconnect();
    isConnected_ = false;
  }

  void forget(Device& device) {
    if (!device.driver) return;
    queue_->async([this, driver = std::move(device.driver)] { observer_.deviceDisappeared(driver); });
  }

  static void coreError(void* data, std::uint32_t id, int, int result, const char*) {
    auto* self = static_cast<Registry*>(data);
    if (id != PW_ID_CORE || result != -EPIPE || self->isLost_) return;
    // The connection cannot be taken down inside its own event.
    self->isLost_ = true;
    self->wasLost_ = true;
    self->loop_->signal();
    self->tryIn(kAtOnce);
  }

  static void coreDone(void* data, std::uint32_t, int sequence) {
    auto* self = static_cast<Registry*>(data);
    for (auto& [id, device] : self->devices_) {
      if (device.node.takesAsAnswered(sequence)) self->finish(device);
    }
    if (sequence != self->lookSequence_ || self->hasLooked_) return;
    // Nodes that were asked answer before this second round ends, unless they are still being asked.
    const bool isBusy =
        std::ranges::any_of(self->devices_, [](const auto& each) { return each.second.node.isBeingAsked(); });
    if (--self->looksLeft_ > 0 || isBusy) {
      self->looksLeft_ = 1;
      self->lookSequence_ = pw_core_sync(self->loop_->core(), PW_ID_CORE, 0);
      return;
    }
    self->hasLooked_ = true;
    self->loop_->signal();
  }

  static void globalAdded(void* data, std::uint32_t id, std::uint32_t, const char* type, std::uint32_t,
                          const spa_dict* properties) {
    auto* self = static_cast<Registry*>(data);
    if (!properties) return;
    const std::string_view typeName = type;
    if (typeName == PW_TYPE_INTERFACE_Metadata) return self->defaults_->watch(self->registry_, id, *properties);
    if (typeName != PW_TYPE_INTERFACE_Node) return;
    const PipeWireNodeKind kind = pipeWireNodeKindOf(spa_dict_lookup(properties, PW_KEY_MEDIA_CLASS));
    if (self->shows(kind)) self->devices_.try_emplace(id, *self, id, kind);
  }

  bool shows(PipeWireNodeKind kind) const {
    return kind != PipeWireNodeKind::none && (kind == PipeWireNodeKind::camera ? reach_.hasCameras : reach_.hasSound);
  }

  static void globalRemoved(void* data, std::uint32_t id) {
    auto* self = static_cast<Registry*>(data);
    const auto found = self->devices_.find(id);
    if (found == self->devices_.end()) return;
    self->forget(found->second);
    self->devices_.erase(found);
  }

  bool isTaken(const std::string& uniqueID) const {
    return std::ranges::any_of(devices_, [&](const auto& each) {
      const auto& driver = each.second.driver;
      return driver && driver->description().uniqueID == uniqueID;
    });
  }

  void finish(Device& device) {
    const PipeWireNode& node = device.node;
    const std::string name = valueOf(node.properties(), PW_KEY_NODE_NAME);
    if (name.empty()) return;
    // Other sources of video show screens and films.
    const bool isCamera = node.kind() == PipeWireNodeKind::camera;
    if (isCamera && valueOf(node.properties(), PW_KEY_MEDIA_ROLE) != "Camera") return;
    if ((device.isUnreadable = isCamera && node.modes().empty())) return;
    device.node.settle();
    const auto controls = pipeWireControlsOf(node.properties(), node.controls(), reach_.openControls);
    auto description = describePipeWireNode(name, node.kind(), node.properties(), node.modes(), node.channels(),
                                            controls ? controls->largestZoom() : 1);
    const std::string base = description.uniqueID;
    for (int count = 2; isTaken(description.uniqueID); ++count)
      description.uniqueID = fmt::format("{}#{}", base, count);
    description.backendName = reach_.name;
    const bool isMonitor = description.isMonitor;
    device.driver =
        std::make_shared<PipeWireDriver>(std::move(description),
                                         PipeWireDriver::Node{name, valueOf(node.properties(), PW_KEY_OBJECT_SERIAL),
                                                              isMonitor, node.modes(), reach_.gate, controls},
                                         defaults_);
    queue_->async([this, driver = device.driver] { observer_.deviceAppeared(driver); });
  }

  static void setProperties(void* owner, std::uint32_t id, const spa_pod& properties) {
    auto& devices = static_cast<Registry*>(owner)->devices_;
    const auto found = devices.find(id);
    if (found != devices.end()) found->second.node.setProperties(properties);
  }

  CaptureBackendObserver& observer_;
  const Reach& reach_;
  const std::shared_ptr<DispatchQueue> queue_ = DispatchQueue::create("tavrel.pwdev");
  const std::shared_ptr<PipeWireDefaults> defaults_ = std::make_shared<PipeWireDefaults>();
  const std::shared_ptr<PipeWireControlLine> line_ = std::make_shared<PipeWireControlLine>();
  std::unique_ptr<PipeWireLoop> loop_;
  spa_source* retry_ = nullptr;
  spa_hook coreListener_{};
  spa_hook registryListener_{};
  pw_registry* registry_ = nullptr;
  std::map<std::uint32_t, Device> devices_;
  bool isConnected_ = false;
  bool isLost_ = false;   // the daemon ended; the connection is still to be taken down
  bool wasLost_ = false;  // ever
  bool hasLooked_ = false;
  int lookSequence_ = -1;
  int looksLeft_ = 0;
};

const pw_core_events PipeWireBackend::Registry::kCoreEvents = [] {
  pw_core_events events{};
  events.version = PW_VERSION_CORE_EVENTS;
  events.done = coreDone;
  events.error = coreError;
  return events;
}();

const pw_registry_events PipeWireBackend::Registry::kRegistryEvents = {PW_VERSION_REGISTRY_EVENTS, globalAdded,
                                                                       globalRemoved};

PipeWireBackend::PipeWireBackend(Reach reach) : reach_(std::move(reach)) {}

PipeWireBackend::~PipeWireBackend() = default;

void PipeWireBackend::start(CaptureBackendObserver& observer) {
  registry_ = std::make_unique<Registry>(observer, reach_);
  registry_->start();
}

void PipeWireBackend::stop() { registry_ = nullptr; }

std::optional<Error> PipeWireBackend::problem() const {
  if (reach_.gate) {
    if (auto closed = reach_.gate->problem()) return closed;
  }
  if (!registry_) return std::nullopt;
  if (!registry_->isWaitedFor()) return registry_->unreadable();
  return makeError(CaptureErrorCode::deviceSilent,
                   "the PipeWire service does not answer; restart it (systemctl --user restart pipewire)");
}

}  // namespace tavrel
