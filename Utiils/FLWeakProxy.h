#pragma once

#include <functional>
#include <memory>
#include <type_traits>
#include <utility>

namespace tavrel {

/// Calls an object later without keeping it alive. Any thread that the target allows.
template <typename Target>
class FLWeakProxy {
 public:
  static FLWeakProxy weakProxyForObject(const std::shared_ptr<Target>& object) { return FLWeakProxy(object); }
  FLWeakProxy() = default;

  /// The object, or nullptr if it was destroyed.
  std::shared_ptr<Target> forwardingTarget() const { return target_.lock(); }

  /// Calls a member function of the target. If that was destroyed, does nothing and returns a value-initialised result.
  template <typename Member, typename... Args>
  auto forward(Member member, Args&&... args) const {
    using Result = std::invoke_result_t<Member, Target&, Args...>;
    const std::shared_ptr<Target> target = forwardingTarget();
    if constexpr (std::is_void_v<Result>) {
      if (target) std::invoke(member, *target, std::forward<Args>(args)...);
    } else {
      return target ? std::invoke(member, *target, std::forward<Args>(args)...) : std::decay_t<Result>{};
    }
  }

 private:
  explicit FLWeakProxy(std::weak_ptr<Target> target) : target_(std::move(target)) {}

  std::weak_ptr<Target> target_;
};

}  // namespace tavrel
