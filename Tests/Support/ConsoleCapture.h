#pragma once

#include <memory>
#include <string>
#include <vector>

namespace tavrel::test {

/// Console messages written while it lives.
class ConsoleCapture {
 public:
  ConsoleCapture();
  ~ConsoleCapture();
  std::vector<std::string> messages() const;
  bool contains(const std::string& part) const;

 private:
  struct State;
  std::shared_ptr<State> state_;
};

}  // namespace tavrel::test
