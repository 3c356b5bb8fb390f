#include "TavrelBase/Log/TavrelDDLogger.h"

namespace tavrel {

TavrelDDLogger::~TavrelDDLogger() = default;

TavrelDDLogFormatter::~TavrelDDLogFormatter() = default;

}  // namespace tavrel
