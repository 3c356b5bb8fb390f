#pragma once

#include <gio/gio.h>

#include <condition_variable>
#include <functional>
#include <mutex>
#include <string>
#include <thread>

#include "Platform/Capture/PipeWire/Private/PipeWireGate.h"

typedef struct _XdpPortal XdpPortal;

namespace tavrel {

/// The desktop's camera portal (https://flatpak.github.io/xdg-desktop-portal/, org.freedesktop.portal.Camera): it asks
/// the person, remembers the answer, and hands out connections that show cameras only. Its events come on a thread
/// "tavrel.portal".
class CameraPortal : public PipeWireGate {
 public:
  /// Whether this process runs in a sandbox (Flatpak, Snap), where cameras are reached in no other way.
  static bool isNeeded();

  CameraPortal();
  ~CameraPortal() override;

  void ask(std::function<void()> answered) override;
  void await(std::chrono::seconds patience) override;
  void giveUp() override;
  CaptureAuthorizationStatus status() const override;
  std::optional<Error> problem() const override;
  Expected<int> connect() override;

 private:
  static void accessAnswered(GObject* portal, GAsyncResult* result, gpointer self);
  void run();
  bool isAsking() const;
  /// `reason` is what the bus says when there is no portal.
  void answer(CaptureAuthorizationStatus status, const char* reason = "");

  GMainContext* const context_;
  GCancellable* const cancellable_;
  XdpPortal* portal_ = nullptr;  // of the thread until there is an answer
  std::mutex tellingMutex_;      // held while `answered_` runs
  std::function<void()> answered_;
  mutable std::mutex mutex_;
  std::condition_variable hasAnswer_;
  CaptureAuthorizationStatus status_ = CaptureAuthorizationStatus::notDetermined;
  std::string reason_;
  bool isGivenUp_ = false;
  std::thread thread_;
};

}  // namespace tavrel
