#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace tavrel {

/// Callbacks, each registered with an `Interest` by which it is selected. Any thread.
template <typename Interest, typename... Arguments>
class ObserverList {
 public:
  using Callback = std::function<void(Arguments...)>;
  /// Identifies a registration; never 0.
  using Token = std::uint64_t;

  Token add(Interest interest, Callback callback) {
    const std::lock_guard lock(mutex_);
    observers_.emplace(++lastToken_,
                       Observer{std::move(interest), std::make_shared<const Callback>(std::move(callback))});
    return lastToken_;
  }

  /// A callback in progress on another thread may still finish after the return.
  void remove(Token token) {
    std::shared_ptr<const Callback> released;  // declared before the lock: destroyed after it is released
    const std::lock_guard lock(mutex_);
    const auto observer = observers_.find(token);
    if (observer == observers_.end()) return;
    released = std::move(observer->second.callback);
    observers_.erase(observer);
  }

  /// Calls the callbacks whose interest `isMeant` accepts, in the order of registration, on this thread. Callbacks may
  /// add and remove registrations; a removed callback is no longer called, even for this notification.
  template <typename Predicate>
  void notify(const Predicate& isMeant, const Arguments&... arguments) {
    std::vector<Token> tokens;
    {
      const std::lock_guard lock(mutex_);
      for (const auto& [token, observer] : observers_) {
        if (isMeant(observer.interest)) tokens.push_back(token);
      }
    }
    for (const Token token : tokens) {
      if (const auto callback = callbackOf(token)) (*callback)(arguments...);
    }
  }

 private:
  struct Observer {
    Interest interest;
    std::shared_ptr<const Callback> callback;
  };

  std::shared_ptr<const Callback> callbackOf(Token token) {
    const std::lock_guard lock(mutex_);
    const auto observer = observers_.find(token);
    return observer == observers_.end() ? nullptr : observer->second.callback;
  }

  std::mutex mutex_;
  Token lastToken_ = 0;
  std::map<Token, Observer> observers_;
};

}  // namespace tavrel
