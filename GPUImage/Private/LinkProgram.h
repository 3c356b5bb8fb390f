#pragma once

#include <memory>

namespace tavrel {

class TavrelGLProgram;

/// Links `program`; when that fails, writes GL's three logs to the console and stops the process.
void linkProgram(std::shared_ptr<TavrelGLProgram>& program);

}  // namespace tavrel
