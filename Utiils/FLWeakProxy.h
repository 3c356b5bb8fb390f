#pragma once

#include <functional>
#include <memory>
#include <type_traits>
#include <utility>

namespace tavrel {

/// Stands for an object in calls that come later, without keeping it alive. Any thread, as far as the target allows.
template <typename Target>
class FLWeakProxy {
 public:
  static FLWeakProxy weakProxyForObject(const std::shared_ptr<Target>& object) { return FLWeakProxy(object); }
  FLWeakProxy() = default;

  /// The object, kept alive by what is returned; nullptr when it is gone.
  std::shared_ptr<Target> forwardingTarget() const { return target_.lock(); }

  /// Calls a member function of the target. When that is gone nothing happens and the result is a zero one.
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
