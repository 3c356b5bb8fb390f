#pragma once

#include <string>

#include "GPUImage/Filters/TavrelGPUImageFilter.h"
#include "GPUImage/Private/QuadProgram.h"
#include "GPUImage/TavrelGPUImageContext.h"

namespace tavrel {

/// The program of a fragment shader written with IN, TEXTURE and OUTPUT. Version 3 of the language has outputs of full
/// precision, which many drivers cut to 11 bits in version 1.
inline QuadProgram makePreciseProgram(const std::string& fragmentShader) {
  TavrelGPUImageContext& context = *TavrelGPUImageContext::sharedImageProcessingContext();
  if (!TavrelGPUImageContext::deepTextureOptions()) {
    return {context, kTavrelGPUImageVertexShaderString,
            "#define IN varying\n#define TEXTURE texture2D\n#define OUTPUT gl_FragColor\n" + fragmentShader};
  }
  return {context,
          "#version 300 es\nin vec4 position; in vec4 inputTextureCoordinate; out highp vec2 textureCoordinate; void "
          "main() { gl_Position = position; textureCoordinate = inputTextureCoordinate.xy; }",
          "#version 300 es\n#define IN in\n#define TEXTURE texture\n#define OUTPUT color\nout highp vec4 color;\n" +
              fragmentShader};
}

}  // namespace tavrel
