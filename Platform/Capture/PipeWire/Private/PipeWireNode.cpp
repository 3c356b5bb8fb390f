#include "Platform/Capture/PipeWire/Private/PipeWireNode.h"

#include <algorithm>
#include <span>
#include <utility>

namespace tavrel {

const pw_node_events PipeWireNode::kEvents = {PW_VERSION_NODE_EVENTS, infoCame, parameterCame};

PipeWireNode::PipeWireNode(pw_core* core, pw_registry* registry, std::uint32_t id, PipeWireNodeKind kind,
                           std::shared_ptr<PipeWireControlLine> line)
    : core_(core),
      proxy_(static_cast<pw_proxy*>(pw_registry_bind(registry, id, PW_TYPE_INTERFACE_Node, PW_VERSION_NODE, 0))),
      id_(id),
      kind_(kind),
      line_(std::move(line)) {
  if (proxy_) pw_node_add_listener(node(), &listener_, &kEvents, this);
}

PipeWireNode::~PipeWireNode() {
  if (!proxy_) return;
  spa_hook_remove(&listener_);
  pw_proxy_destroy(proxy_);
}

bool PipeWireNode::takesAsAnswered(int sequence) {
  if (doneSequence_ != sequence) return false;
  doneSequence_ = -1;
  return true;
}

void PipeWireNode::infoCame(void* data, const pw_node_info* info) {
  auto* self = static_cast<PipeWireNode*>(data);
  if ((info->change_mask & PW_NODE_CHANGE_MASK_PROPS) != 0 && info->props) {
    const spa_dict_item* item = nullptr;
    spa_dict_for_each(item, info->props) self->properties_[item->key] = item->value ? item->value : "";
  }
  if (!self->isSettled_ && (info->change_mask & PW_NODE_CHANGE_MASK_PARAMS) != 0) self->ask(*info);
}

void PipeWireNode::ask(const pw_node_info& info) {
  // A camera that has not found its formats yet is asked again when they change.
  const std::span params(info.params, info.n_params);
  const bool isCamera = kind_ == PipeWireNodeKind::camera;
  if (isCamera && std::ranges::count(params, SPA_PARAM_EnumFormat, &spa_param_info::id) == 0) return;
  modes_.clear();
  formats_.clear();
  controls_ = std::make_shared<PipeWireControls>(id_, line_);
  for (const spa_param_info& param : params) {
    if (param.id != SPA_PARAM_EnumFormat && !(isCamera && param.id == SPA_PARAM_PropInfo)) continue;
    const int sequence = pw_node_enum_params(node(), 0, param.id, 0, UINT32_MAX, nullptr);
    if (param.id == SPA_PARAM_EnumFormat) formatsSequence_ = sequence;
  }
  doneSequence_ = pw_core_sync(core_, PW_ID_CORE, 0);
}

void PipeWireNode::parameterCame(void* data, int sequence, std::uint32_t id, std::uint32_t, std::uint32_t,
                                 const spa_pod* parameter) {
  auto* self = static_cast<PipeWireNode*>(data);
  if (!parameter) return;
  if (id == SPA_PARAM_PropInfo && !self->isSettled_) self->controls_->add(*parameter);
  // A node that changed before it had answered answers both times.
  if (id != SPA_PARAM_EnumFormat || sequence != self->formatsSequence_) return;
  if (self->kind_ == PipeWireNodeKind::camera) {
    const auto modes = parsePipeWireModes(*parameter);
    self->modes_.insert(self->modes_.end(), modes.begin(), modes.end());
    self->formats_.push_back(pipeWireFormatNames(*parameter));
  } else if (self->channels_ == 0) {
    self->channels_ = parsePipeWireChannels(*parameter);
  }
}

}  // namespace tavrel
