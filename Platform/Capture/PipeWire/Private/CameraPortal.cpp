#include "Platform/Capture/PipeWire/Private/CameraPortal.h"

#include <fmt/format.h>
#include <libportal/portal.h>
#include <pthread.h>

#include <filesystem>
#include <utility>

#include "Platform/Capture/CaptureError.h"
#include "Platform/Foundation/Environment.h"

namespace tavrel {
namespace {

/// Nobody was asked, since there is nobody to ask.
bool isMissing(const GError& error) { return error.domain == G_DBUS_ERROR && error.code != G_DBUS_ERROR_ACCESS_DENIED; }

}  // namespace

bool CameraPortal::isNeeded() {
  return std::filesystem::exists("/.flatpak-info") || environmentVariable("SNAP").has_value();
}

CameraPortal::CameraPortal() : context_(g_main_context_new()), cancellable_(g_cancellable_new()) {}

CameraPortal::~CameraPortal() {
  giveUp();
  if (thread_.joinable()) thread_.join();
  if (portal_) g_object_unref(portal_);
  g_object_unref(cancellable_);
  g_main_context_unref(context_);
}

void CameraPortal::giveUp() {
  {
    const std::lock_guard telling(tellingMutex_);
    answered_ = nullptr;
    const std::lock_guard lock(mutex_);
    isGivenUp_ = true;
  }
  hasAnswer_.notify_all();
  g_cancellable_cancel(cancellable_);
  g_main_context_wakeup(context_);
}

void CameraPortal::ask(std::function<void()> answered) {
  if (thread_.joinable()) return;
  answered_ = std::move(answered);
  thread_ = std::thread([this] { run(); });
}

void CameraPortal::run() {
  pthread_setname_np(pthread_self(), "tavrel.portal");
  g_main_context_push_thread_default(context_);
  GError* error = nullptr;
  GDBusConnection* const bus = g_bus_get_sync(G_BUS_TYPE_SESSION, cancellable_, &error);
  if (bus) {
    // The end of the desktop's session is not that of this program.
    g_dbus_connection_set_exit_on_close(bus, FALSE);
    g_object_unref(bus);
    portal_ = xdp_portal_new();
    // Without a cancellable: libportal 0.6 disconnects from one that it does not keep. Who gives up leaves the question
    // to this context, which nobody serves any more.
    xdp_portal_access_camera(portal_, nullptr, XDP_CAMERA_FLAG_NONE, nullptr, accessAnswered, this);
  } else {
    answer(CaptureAuthorizationStatus::restricted, error->message);
    g_error_free(error);
  }
  while (isAsking()) g_main_context_iteration(context_, TRUE);
  g_main_context_pop_thread_default(context_);
}

void CameraPortal::accessAnswered(GObject* portal, GAsyncResult* result, gpointer self) {
  auto& owner = *static_cast<CameraPortal*>(self);
  GError* error = nullptr;
  if (xdp_portal_access_camera_finish(XDP_PORTAL(portal), result, &error)) {
    return owner.answer(CaptureAuthorizationStatus::authorized);
  }
  if (isMissing(*error)) {
    owner.answer(CaptureAuthorizationStatus::restricted, error->message);
  } else {
    owner.answer(CaptureAuthorizationStatus::denied);
  }
  g_error_free(error);
}

void CameraPortal::answer(CaptureAuthorizationStatus status, const char* reason) {
  {
    const std::lock_guard lock(mutex_);
    status_ = status;
    reason_ = reason;
  }
  hasAnswer_.notify_all();
  const std::lock_guard telling(tellingMutex_);
  if (answered_) answered_();
}

bool CameraPortal::isAsking() const {
  const std::lock_guard lock(mutex_);
  return status_ == CaptureAuthorizationStatus::notDetermined && !isGivenUp_;
}

void CameraPortal::await(std::chrono::seconds patience) {
  std::unique_lock lock(mutex_);
  hasAnswer_.wait_for(lock, patience,
                      [this] { return status_ != CaptureAuthorizationStatus::notDetermined || isGivenUp_; });
}

CaptureAuthorizationStatus CameraPortal::status() const {
  const std::lock_guard lock(mutex_);
  return status_;
}

std::optional<Error> CameraPortal::problem() const {
  const std::lock_guard lock(mutex_);
  switch (status_) {
    case CaptureAuthorizationStatus::authorized: return std::nullopt;
    case CaptureAuthorizationStatus::denied:
      return makeError(CaptureErrorCode::permissionDenied,
                       "the desktop does not let this program use cameras; allow it in the desktop's settings");
    case CaptureAuthorizationStatus::restricted:
      return makeError(
          CaptureErrorCode::noPortal,
          fmt::format("the desktop has no camera portal (xdg-desktop-portal) that could be asked: {}", reason_));
    case CaptureAuthorizationStatus::notDetermined: break;
  }
  return makeError(CaptureErrorCode::permissionPending,
                   "the desktop asks whether this program may use cameras; there has been no answer yet");
}

Expected<int> CameraPortal::connect() {
  if (const auto found = problem()) return tl::unexpected(*found);
  const int socket = xdp_portal_open_pipewire_remote_for_camera(portal_);
  if (socket < 0) return failure(CaptureErrorCode::deviceFailed, "the camera portal gives no connection to PipeWire");
  return socket;
}

}  // namespace tavrel
