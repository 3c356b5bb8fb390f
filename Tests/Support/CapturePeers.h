#pragma once

#include <signal.h>
#include <sys/types.h>

#include <chrono>
#include <filesystem>
#include <memory>
#include <string>
#include <vector>

namespace tavrel::test {

/// A program that runs beside the test, in a process group of its own, which ends with this, and with the test.
class PeerProcess {
 public:
  explicit PeerProcess(const std::string& shellCommand);
  PeerProcess(const PeerProcess&) = delete;
  PeerProcess& operator=(const PeerProcess&) = delete;
  ~PeerProcess() { kill(); }

  /// Sends the group a signal.
  void signal(int number) const;
  /// Ends the group at once.
  void kill();

 private:
  pid_t process_ = -1;
};

/// Runs a command to its end; true when it succeeded.
bool runCommand(const std::string& shellCommand);

/// A sound and camera service of the test's own: a message bus, PipeWire, its session manager and its PulseAudio front,
/// in a runtime folder of their own, which is also the process's from now on.
class PipeWireService {
 public:
  PipeWireService();
  PipeWireService(const PipeWireService&) = delete;
  PipeWireService& operator=(const PipeWireService&) = delete;
  ~PipeWireService();

  /// Starts the programs; false when they do not answer within 20 seconds.
  bool start();
  void stop();
  /// Lets the programs hang, or go on.
  void suspend(bool isSuspended) const { programs_->signal(isSuspended ? SIGSTOP : SIGCONT); }

  const std::filesystem::path& folder() const { return folder_; }
  /// A camera named `name` with colour bars in `caps` (as GStreamer names them). It is started again when it crashes,
  /// as GStreamer 1.22 does in one of some twenty times that a reader comes ("gst_buffer_peek_memory: assertion").
  std::unique_ptr<PeerProcess> startCamera(const std::string& name, const std::string& caps,
                                           const std::string& properties = "",
                                           const std::string& role = "Camera") const;

 private:
  std::filesystem::path folder_;
  std::unique_ptr<PeerProcess> programs_;
};

}  // namespace tavrel::test
