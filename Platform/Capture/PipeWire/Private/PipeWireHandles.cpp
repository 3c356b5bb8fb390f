#include <cerrno>
#include <mutex>
#include <system_error>
#include <utility>

#include "Platform/Capture/CaptureError.h"
#include "Platform/Capture/PipeWire/Private/PipeWireHandles.h"

namespace tavrel {

Expected<std::unique_ptr<PipeWireLoop>> PipeWireLoop::create(const char* name, std::shared_ptr<PipeWireGate> gate) {
  static std::once_flag once;
  std::call_once(once, [] { pw_init(nullptr, nullptr); });
  std::unique_ptr<PipeWireLoop> made(new PipeWireLoop);
  made->gate_ = std::move(gate);
  made->loop_ = pw_thread_loop_new(name, nullptr);
  if (made->loop_) made->context_ = pw_context_new(pw_thread_loop_get_loop(made->loop_), nullptr, 0);
  if (!made->context_ || pw_thread_loop_start(made->loop_) < 0) {
    return failure(CaptureErrorCode::deviceFailed, "PipeWire's client cannot be started");
  }
  return made;
}

PipeWireLoop::~PipeWireLoop() {
  stop();
  disconnect();
  if (context_) pw_context_destroy(context_);
  if (loop_) pw_thread_loop_destroy(loop_);
}

Expected<void> PipeWireLoop::connect() {
  if (gate_) {
    const auto socket = gate_->connect();
    if (!socket) return tl::unexpected(socket.error());
    core_ = pw_context_connect_fd(context_, *socket, nullptr, 0);
  } else {
    core_ = pw_context_connect(context_, nullptr, 0);
  }
  if (core_) return {};
  const int code = errno;
  return failure("posix", code, "no PipeWire service answers: " + std::system_category().message(code));
}

void PipeWireLoop::disconnect() {
  if (core_) pw_core_disconnect(core_);
  core_ = nullptr;
}

void PipeWireLoop::stop() {
  if (loop_) pw_thread_loop_stop(loop_);
}

void PipeWireLoop::stop(pw_stream* stream, spa_hook& listener) {
  if (stream) {
    const Lock lock(*this);
    spa_hook_remove(&listener);
    pw_stream_disconnect(stream);
  }
  stop();
}

}  // namespace tavrel
