#include "Support/ConsoleCapture.h"

#include <algorithm>
#include <mutex>

#include "Platform/Foundation/ConsoleLog.h"

namespace tavrel::test {

struct ConsoleCapture::State {
  std::mutex mutex;
  std::vector<std::string> messages;
};

ConsoleCapture::ConsoleCapture() : state_(std::make_shared<State>()) {
  ConsoleLog::setSink([state = state_](std::string_view message) {
    const std::lock_guard lock(state->mutex);
    state->messages.emplace_back(message);
  });
}

ConsoleCapture::~ConsoleCapture() { ConsoleLog::setSink({}); }

std::vector<std::string> ConsoleCapture::messages() const {
  const std::lock_guard lock(state_->mutex);
  return state_->messages;
}

bool ConsoleCapture::contains(const std::string& part) const {
  const auto all = messages();
  return std::any_of(all.begin(), all.end(),
                     [&](const std::string& message) { return message.find(part) != std::string::npos; });
}

}  // namespace tavrel::test
