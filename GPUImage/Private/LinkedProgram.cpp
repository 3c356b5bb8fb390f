#include "GPUImage/Private/LinkedProgram.h"

#include "GPUImage/TavrelGLProgram.h"
#include "GPUImage/TavrelGPUImageContext.h"
#include "Platform/Foundation/ConsoleLog.h"
#include "Platform/Foundation/FatalAssertion.h"

namespace tavrel {

std::shared_ptr<TavrelGLProgram> linkedProgram(TavrelGPUImageContext& context, std::string_view vertexShader,
                                               std::string_view fragmentShader,
                                               std::initializer_list<std::string_view> attributes) {
  std::shared_ptr<TavrelGLProgram> program = context.programForVertexShaderString(vertexShader, fragmentShader);
  if (program->initialized()) return program;
  for (const std::string_view attribute : attributes) program->addAttribute(attribute);
  if (program->link()) return program;
  ConsoleLog::write("Program link log: {}", program->programLog());
  ConsoleLog::write("Fragment shader compile log: {}", program->fragmentShaderLog());
  ConsoleLog::write("Vertex shader compile log: {}", program->vertexShaderLog());
  program.reset();
  fatalAssertion("Filter shader link failed");
}

}  // namespace tavrel
