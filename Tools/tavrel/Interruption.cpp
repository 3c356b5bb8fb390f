#include "Interruption.h"

#include <csignal>
#include <initializer_list>

namespace tavrel::tool {
namespace {

volatile std::sig_atomic_t isInterrupted = 0;

}  // namespace

Interruption::Interruption() {
  isInterrupted = 0;
  for (const int signal : {SIGINT, SIGTERM}) std::signal(signal, [](int) { isInterrupted = 1; });
}

bool Interruption::isAskedFor() const { return isInterrupted != 0; }

}  // namespace tavrel::tool
