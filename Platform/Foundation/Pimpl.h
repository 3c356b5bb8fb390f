#pragma once

#include <memory>

namespace tavrel {

/// Owns the part of an object that its header only declares, as a constant `std::unique_ptr` would, which costs every
/// file that includes the header much more time (with GCC 12, 7 ms for each class).
template <typename Implementation>
class Pimpl {
 public:
  explicit Pimpl(Implementation* implementation) : implementation_(implementation) {}
  Pimpl(std::unique_ptr<Implementation> implementation)  // NOLINT(google-explicit-constructor): is one, for its owner
      : implementation_(implementation.release()) {}
  Pimpl(const Pimpl&) = delete;
  Pimpl& operator=(const Pimpl&) = delete;
  ~Pimpl() {
    static_assert(sizeof(Implementation) != 0, "the owner's destructor belongs where its implementation is known");
    delete implementation_;
  }

  Implementation* get() const { return implementation_; }
  Implementation* operator->() const { return implementation_; }
  Implementation& operator*() const { return *implementation_; }

 private:
  Implementation* const implementation_;
};

}  // namespace tavrel
