#include "Platform/UI/Application.h"

#include "Platform/Dispatch/DispatchQueue.h"
#include "Platform/Dispatch/RunLoop.h"
#include "Platform/Foundation/NotificationCenter.h"
#include "Platform/Foundation/Notifications.h"
#include "Platform/UI/Private/SystemWatch.h"

namespace tavrel {
namespace {

void post(const char* name) { NotificationCenter::defaultCenter().post(name, &Application::shared()); }

}  // namespace

Application& Application::shared() {
  static auto* application = new Application;
  return *application;
}

void Application::observeSystem() {
  std::call_once(systemObserved_, [] {
    SystemWatch::start({.terminationRequested = [] { shared().terminate(); },
                        .memoryIsShort = [] { shared().receiveMemoryWarning(); }});
  });
}

void Application::setState(ApplicationState state) {
  // One step at a time, so that nobody goes to the background while active.
  while (state_ != state) {
    const ApplicationState current = state_;
    if (current == ApplicationState::active) {
      post(kApplicationWillResignActiveNotification);
      state_ = ApplicationState::inactive;
    } else if (current == ApplicationState::background) {
      post(kApplicationWillEnterForegroundNotification);
      state_ = ApplicationState::inactive;
    } else {
      state_ = state;
      post(state == ApplicationState::active ? kApplicationDidBecomeActiveNotification
                                             : kApplicationDidEnterBackgroundNotification);
    }
  }
}

void Application::receiveMemoryWarning() {
  DispatchQueue::main()->async([] { post(kApplicationDidReceiveMemoryWarningNotification); });
}

void Application::terminate() {
  if (isTerminating_.exchange(true)) return;
  DispatchQueue::main()->async([] {
    post(kApplicationWillTerminateNotification);
    RunLoop::main().stop();
  });
}

}  // namespace tavrel
