#pragma once

#include "Platform/Foundation/Error.h"

namespace tavrel {

/// Connects the process to the window system at the first call, and asks again after a failure. Fails (`UIStatus`) when
/// there is none to be had, and always in a library that was built without windows. Main thread.
Expected<void> startUserInterface();

}  // namespace tavrel
