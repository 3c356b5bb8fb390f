#include "Interruption.h"

#include <csignal>
#include <initializer_list>

namespace tavrel::tool {
namespace {

volatile std::sig_atomic_t isInterrupted = 0;

}  // namespace

Interruption::Interruption() {
  isInterrupted = 0;
  for (const int signal : {SIGINT, SIGTERM, SIGHUP}) {
    const auto before = std::signal(signal, [](int) { isInterrupted = 1; });
    if (signal == SIGHUP && before == SIG_IGN) std::signal(signal, SIG_IGN);
  }
}

bool Interruption::isAskedFor() const { return isInterrupted != 0; }

}  // namespace tavrel::tool
