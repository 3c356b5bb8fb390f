#include "Platform/Capture/PipeWire/Private/PipeWireControls.h"

#include <linux/v4l2-controls.h>
#include <spa/param/param.h>
#include <spa/param/props.h>
#include <spa/pod/builder.h>
#include <spa/pod/iter.h>
#include <spa/pod/parser.h>
#include <spa/utils/keys.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <optional>
#include <string_view>
#include <utility>

namespace tavrel {
namespace {

constexpr std::size_t kMostBytes = 256;
/// A zoom that starts at 0 does not say what its numbers mean; its end is taken for this factor.
constexpr double kZoomOfUnknownScale = 4;

std::optional<double> numberOf(std::uint32_t type, const void* body) {
  switch (type) {
    case SPA_TYPE_Bool:
    case SPA_TYPE_Int: return *static_cast<const std::int32_t*>(body);
    case SPA_TYPE_Float: return *static_cast<const float*>(body);
    default: return std::nullopt;
  }
}

}  // namespace

void PipeWireControlLine::open(pw_loop* loop, void* owner, Set set) {
  const std::lock_guard lock(mutex_);
  loop_ = loop;
  owner_ = owner;
  set_ = set;
}

void PipeWireControlLine::close() { open(nullptr, nullptr, nullptr); }

void PipeWireControlLine::send(std::uint32_t node, const spa_pod& properties) {
  struct Message {
    Set set;
    std::uint32_t node;
    alignas(8) std::array<std::uint8_t, kMostBytes> bytes;
  };
  const std::lock_guard lock(mutex_);
  const std::size_t size = sizeof(spa_pod) + properties.size;
  if (!loop_ || size > kMostBytes) return;
  Message message = {set_, node, {}};
  std::memcpy(message.bytes.data(), &properties, size);
  const auto arrive = [](spa_loop*, bool, std::uint32_t, const void* data, std::size_t, void* owner) {
    const auto& arrived = *static_cast<const Message*>(data);
    arrived.set(owner, arrived.node, *static_cast<const spa_pod*>(static_cast<const void*>(arrived.bytes.data())));
    return 0;
  };
  pw_loop_invoke(loop_, arrive, 0, &message, sizeof message, false, owner_);
}

struct PipeWireControls::Known {
  Role role;
  std::uint32_t control;  ///< the kernel's number; 0 without
  const char* name;       ///< nullptr without
};

const std::array<PipeWireControls::Known, 7> PipeWireControls::kKnown = {
    {{Role::focusAuto, V4L2_CID_FOCUS_AUTO, nullptr},
     {Role::focusStart, V4L2_CID_AUTO_FOCUS_START, nullptr},
     {Role::exposureAuto, V4L2_CID_EXPOSURE_AUTO, nullptr},
     {Role::zoom, V4L2_CID_ZOOM_ABSOLUTE, nullptr},
     {Role::lensMode, 0, "AfMode"},
     {Role::lensTrigger, 0, "AfTrigger"},
     {Role::exposureEnabled, 0, "AeEnable"}}};

void PipeWireControls::add(const spa_pod& information) {
  std::uint32_t id = 0;
  const char* name = nullptr;
  const spa_pod* type = nullptr;
  if (spa_pod_parse_object(&information, SPA_TYPE_OBJECT_PropInfo, nullptr, SPA_PROP_INFO_id, SPA_POD_Id(&id),
                           SPA_PROP_INFO_description, SPA_POD_OPT_String(&name), SPA_PROP_INFO_type,
                           SPA_POD_PodChoice(&type)) < 0 ||
      !type) {
    return;
  }
  const auto isIt = [&](const Known& known) {
    if (known.name) return name && std::string_view(name) == known.name;
    return id == SPA_PROP_START_CUSTOM + known.control;
  };
  const auto* const known = std::ranges::find_if(kKnown, isIt);
  if (known == kKnown.end()) return;
  std::uint32_t count = 0;
  std::uint32_t choice = 0;
  const spa_pod* const first = spa_pod_get_values(type, &count, &choice);
  if (!first || first->size < sizeof(std::int32_t)) return;
  Property property = {id, first->type, {}};
  const auto* body = static_cast<const std::uint8_t*>(SPA_POD_BODY_CONST(first));
  // The default is in front of the others.
  const std::uint32_t skipped = choice != SPA_CHOICE_None && count > 1 ? 1 : 0;
  const std::uint32_t end = choice == SPA_CHOICE_Range || choice == SPA_CHOICE_Step ? std::min(count, 3U) : count;
  for (std::uint32_t i = skipped; i < end; ++i) {
    const auto value = numberOf(first->type, body + std::size_t{i} * first->size);
    if (!value) return;
    property.values.push_back(*value);
  }
  properties_[known->role] = std::move(property);
}

const PipeWireControls::Property* PipeWireControls::find(Role role) const {
  const auto found = properties_.find(role);
  return found != properties_.end() ? &found->second : nullptr;
}

int PipeWireControls::automaticExposure() const {
  const Property* modes = find(Role::exposureAuto);
  for (const int mode : {V4L2_EXPOSURE_AUTO, V4L2_EXPOSURE_APERTURE_PRIORITY}) {
    if (modes && std::ranges::count(modes->values, mode) > 0) return mode;
  }
  return -1;
}

bool PipeWireControls::hasManualExposure() const {
  const Property* modes = find(Role::exposureAuto);
  return modes && std::ranges::count(modes->values, V4L2_EXPOSURE_MANUAL) > 0;
}

CaptureCapabilities PipeWireControls::capabilities() const {
  const bool follows = find(Role::focusAuto) || find(Role::lensMode);
  const bool looksOnce = find(Role::focusStart) || find(Role::lensTrigger);
  const bool isSwitched = find(Role::exposureEnabled);
  CaptureCapabilities result;
  result.focusModes = {follows || looksOnce, looksOnce, follows};
  result.exposureModes = {isSwitched || hasManualExposure(), false, isSwitched || automaticExposure() >= 0};
  result.zoom = largestZoom() > 1;
  // A new point has the camera focus anew, wherever that is.
  result.focusPoint = follows || looksOnce;
  return result;
}

double PipeWireControls::largestZoom() const {
  const Property* zoom = find(Role::zoom);
  if (!zoom || zoom->values.size() != 2 || zoom->values[1] <= zoom->values[0]) return 1;
  return zoom->values[0] > 0 ? zoom->values[1] / zoom->values[0] : kZoomOfUnknownScale;
}

void PipeWireControls::set(Role role, double value) {
  const Property* property = find(role);
  if (!property) return;
  alignas(8) std::array<std::uint8_t, kMostBytes> memory{};
  spa_pod_builder builder{};
  spa_pod_builder_init(&builder, memory.data(), memory.size());
  spa_pod_frame frame{};
  spa_pod_builder_push_object(&builder, &frame, SPA_TYPE_OBJECT_Props, SPA_PARAM_Props);
  spa_pod_builder_prop(&builder, property->id, 0);
  switch (property->type) {
    case SPA_TYPE_Bool: spa_pod_builder_bool(&builder, value != 0); break;
    case SPA_TYPE_Float: spa_pod_builder_float(&builder, static_cast<float>(value)); break;
    default: spa_pod_builder_int(&builder, static_cast<std::int32_t>(std::lround(value))); break;
  }
  line_->send(node_, *static_cast<const spa_pod*>(spa_pod_builder_pop(&builder, &frame)));
}

void PipeWireControls::apply(CaptureControl control, const CaptureControls& controls) {
  const std::lock_guard lock(mutex_);
  switch (control) {
    case CaptureControl::torch: return;
    case CaptureControl::focus: {
      const bool isNewPoint = std::exchange(focusPoint_, controls.focusPoint) != controls.focusPoint;
      const bool isContinuous = controls.focusMode == CaptureFocusMode::continuousAutoFocus;
      const bool isOnce = controls.focusMode == CaptureFocusMode::autoFocus;
      // Off and on again, it looks for the focus anew.
      if (isNewPoint && isContinuous) set(Role::focusAuto, 0), set(Role::lensMode, 0);
      set(Role::focusAuto, isContinuous ? 1 : 0);
      set(Role::lensMode, isContinuous ? 2 : isOnce ? 1 : 0);
      if (isOnce) set(Role::focusStart, 1), set(Role::lensTrigger, 0);
      return;
    }
    case CaptureControl::exposure: {
      const bool isAutomatic = controls.exposureMode != CaptureExposureMode::locked;
      set(Role::exposureEnabled, isAutomatic ? 1 : 0);
      if (isAutomatic ? automaticExposure() < 0 : !hasManualExposure()) return;
      return set(Role::exposureAuto, isAutomatic ? automaticExposure() : V4L2_EXPOSURE_MANUAL);
    }
    case CaptureControl::zoom: {
      if (largestZoom() <= 1) return;
      const auto& ends = find(Role::zoom)->values;
      const double place = std::clamp((controls.zoomFactor - 1) / (largestZoom() - 1), 0.0, 1.0);
      return set(Role::zoom, ends[0] + place * (ends[1] - ends[0]));
    }
  }
}

std::shared_ptr<CaptureControlPort> pipeWireControlsOf(
    const PipeWireProperties& properties, const std::shared_ptr<PipeWireControls>& controls,
    const std::function<std::unique_ptr<CaptureControlPort>(const std::string& path)>& openNode) {
  const std::string path = valueOf(properties, SPA_KEY_API_V4L2_PATH);
  if (!path.empty() && openNode) {
    if (std::shared_ptr<CaptureControlPort> port = openNode(path)) return port;
  }
  return controls && !controls->isEmpty() ? controls : nullptr;
}

}  // namespace tavrel
