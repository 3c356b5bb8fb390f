#pragma once

#include <pipewire/pipewire.h>

#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "Platform/Capture/PipeWire/Private/PipeWireControls.h"
#include "Platform/Capture/PipeWire/Private/PipeWireNodes.h"

namespace tavrel {

/// A node of the daemon, and what it has said of itself so far. The loop's thread.
class PipeWireNode {
 public:
  /// Binds to the node that `registry` calls `id`.
  PipeWireNode(pw_core* core, pw_registry* registry, std::uint32_t id, PipeWireNodeKind kind,
               std::shared_ptr<PipeWireControlLine> line);
  ~PipeWireNode();
  PipeWireNode(const PipeWireNode&) = delete;

  PipeWireNodeKind kind() const { return kind_; }
  const PipeWireProperties& properties() const { return properties_; }
  const std::vector<PipeWireMode>& modes() const { return modes_; }
  /// By their names, whether we can read them or not.
  const std::vector<std::string>& formats() const { return formats_; }
  std::uint32_t channels() const { return channels_; }
  const std::shared_ptr<PipeWireControls>& controls() const { return controls_; }

  bool isBeingAsked() const { return doneSequence_ >= 0; }
  /// Whether the core's answer `sequence` is the end of what the node was asked for last.
  bool takesAsAnswered(int sequence);
  /// From now on its modes and controls stay as they are.
  void settle() { isSettled_ = true; }
  void setProperties(const spa_pod& properties) { pw_node_set_param(node(), SPA_PARAM_Props, 0, &properties); }

 private:
  static const pw_node_events kEvents;
  static void infoCame(void* data, const pw_node_info* info);
  static void parameterCame(void* data, int sequence, std::uint32_t id, std::uint32_t index, std::uint32_t next,
                            const spa_pod* parameter);

  pw_node* node() const { return reinterpret_cast<pw_node*>(proxy_); }
  void ask(const pw_node_info& info);

  pw_core* core_;
  pw_proxy* proxy_;
  const std::uint32_t id_;
  const PipeWireNodeKind kind_;
  const std::shared_ptr<PipeWireControlLine> line_;
  spa_hook listener_{};
  PipeWireProperties properties_;
  std::vector<PipeWireMode> modes_;
  std::vector<std::string> formats_;
  std::uint32_t channels_ = 0;
  std::shared_ptr<PipeWireControls> controls_;
  int formatsSequence_ = 0;  // of the latest asking for them
  int doneSequence_ = -1;    // of the end of the latest asking
  bool isSettled_ = false;
};

}  // namespace tavrel
