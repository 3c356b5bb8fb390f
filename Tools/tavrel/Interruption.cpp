#include "Interruption.h"

#include <csignal>

namespace tavrel::tool {
namespace {

constexpr int kSignals[] = {SIGINT, SIGTERM, SIGHUP};

volatile std::sig_atomic_t isInterrupted = 0;

}  // namespace

Interruption::Interruption() {
  isInterrupted = 0;
  for (std::size_t i = 0; i < before_.size(); ++i) {
    before_[i] = std::signal(kSignals[i], [](int) { isInterrupted = 1; });
    if (kSignals[i] == SIGHUP && before_[i] == SIG_IGN) std::signal(SIGHUP, SIG_IGN);
  }
}

Interruption::~Interruption() {
  for (std::size_t i = 0; i < before_.size(); ++i) std::signal(kSignals[i], before_[i]);
}

bool Interruption::isAskedFor() const { return isInterrupted != 0; }

}  // namespace tavrel::tool
