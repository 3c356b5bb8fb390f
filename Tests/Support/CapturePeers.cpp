#include "Support/CapturePeers.h"

#include <signal.h>
#include <sys/prctl.h>
#include <sys/wait.h>
#include <unistd.h>

#include <cstdlib>
#include <thread>

#include "Support/CaptureTestSupport.h"

namespace tavrel::test {

PeerProcess::PeerProcess(const std::string& shellCommand) {
  process_ = fork();
  if (process_ != 0) return;
  setpgid(0, 0);
  prctl(PR_SET_PDEATHSIG, SIGTERM);
  // It ends the whole group when the test has died or after five minutes.
  execl("/usr/bin/timeout", "timeout", "-k", "1", "300", "bash", "-c", shellCommand.c_str(), nullptr);
  _exit(127);
}

void PeerProcess::signal(int number) const { ::kill(-process_, number); }

void PeerProcess::kill() {
  if (process_ <= 0) return;
  ::kill(-process_, SIGKILL);
  waitpid(process_, nullptr, 0);
  process_ = -1;
}

bool runCommand(const std::string& shellCommand) {
  const std::string patience = std::to_string(20 * patienceFactor());
  return std::system(("timeout " + patience + " bash -c '" + shellCommand + "' >/dev/null 2>&1").c_str()) ==  // NOLINT
         0;
}

PipeWireService::PipeWireService()
    : folder_(std::filesystem::temp_directory_path() / ("tavrel-pipewire-" + std::to_string(getpid()))) {
  std::filesystem::create_directories(folder_);
  std::filesystem::permissions(folder_, std::filesystem::perms::owner_all);
  const std::string folder = folder_.string();
  setenv("XDG_RUNTIME_DIR", folder.c_str(), 1);
  setenv("XDG_STATE_HOME", folder.c_str(), 1);
  setenv("XDG_CONFIG_HOME", folder.c_str(), 1);
  setenv("HOME", folder.c_str(), 1);
  unsetenv("PIPEWIRE_REMOTE");
  unsetenv("PULSE_SERVER");
  unsetenv("DBUS_SESSION_BUS_ADDRESS");
}

PipeWireService::~PipeWireService() {
  stop();
  std::error_code ignored;
  std::filesystem::remove_all(folder_, ignored);
}

bool PipeWireService::start() {
  programs_ = std::make_unique<PeerProcess>(
      "dbus-run-session -- bash -c 'echo \"$DBUS_SESSION_BUS_ADDRESS\" >\"$XDG_RUNTIME_DIR/bus-address\"; pipewire & "
      "until [ -S \"$XDG_RUNTIME_DIR/pipewire-0\" ]; do sleep 0.05; done; wireplumber & pipewire-pulse & wait' "
      ">\"$XDG_RUNTIME_DIR/service.log\" 2>&1");
  const auto deadline = std::chrono::steady_clock::now() + std::chrono::seconds(20) * patienceFactor();
  while (!runCommand("pactl info | grep -q PipeWire")) {
    if (std::chrono::steady_clock::now() > deadline) return false;
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
  }
  return true;
}

void PipeWireService::stop() {
  programs_ = nullptr;
  for (const char* socket : {"pipewire-0", "pipewire-0.lock", "pulse"}) {
    std::error_code ignored;
    std::filesystem::remove_all(folder_ / socket, ignored);
  }
}

std::unique_ptr<PeerProcess> PipeWireService::startCamera(const std::string& name, const std::string& caps,
                                                          const std::string& properties,
                                                          const std::string& role) const {
  return std::make_unique<PeerProcess>(
      "until gst-launch-1.0 --no-fault -q videotestsrc is-live=true ! video/x-raw," + caps +
      " ! pipewiresink mode=provide stream-properties=\"p,media.class=Video/Source,media.role=" + role +
      ",node.name=" + name + ",node.description=Bars-" + name + properties + "\" >\"$XDG_RUNTIME_DIR/" + name +
      ".log\" 2>&1; do sleep 0.2; done");
}

}  // namespace tavrel::test
