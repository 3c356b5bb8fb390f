#include "Platform/Foundation/FatalAssertion.h"

#include <unistd.h>

#include <cstdlib>

#include "Platform/Foundation/ConsoleWriter.h"
#include "Platform/Foundation/ProcessEnd.h"

namespace tavrel {

void fatalAssertion(std::string_view text) {
  ConsoleWriter(STDERR_FILENO).write(fmt::format("*** Assertion failure: {}\n", text));
  ProcessEnd::tellFatalAssertion(text);
  std::abort();
}

}  // namespace tavrel
