#include "GPUImage/Private/LinkProgram.h"

#include "GPUImage/TavrelGLProgram.h"
#include "Platform/Foundation/ConsoleLog.h"
#include "Platform/Foundation/FatalAssertion.h"

namespace tavrel {

void linkProgram(std::shared_ptr<TavrelGLProgram>& program) {
  if (program->link()) return;
  ConsoleLog::write("Program link log: {}", program->programLog());
  ConsoleLog::write("Fragment shader compile log: {}", program->fragmentShaderLog());
  ConsoleLog::write("Vertex shader compile log: {}", program->vertexShaderLog());
  program.reset();
  fatalAssertion("Filter shader link failed");
}

}  // namespace tavrel
