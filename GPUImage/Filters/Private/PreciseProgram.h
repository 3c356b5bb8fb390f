#pragma once

#include <string>

#include "GPUImage/Filters/TavrelGPUImageFilter.h"
#include "GPUImage/Private/QuadProgram.h"
#include "GPUImage/TavrelGPUImageContext.h"

namespace tavrel {

/// The program of a fragment shader written with IN, TEXTURE and OUTPUT, and `LOOP(i, most, count) { … }` for what is
/// repeated `count` times. Version 3 of the language has outputs of full precision, which many drivers cut to 11 bits
/// in version 1, and loops of any length: those of version 1 may be unrolled, and then cost as much as the longest.
inline QuadProgram makePreciseProgram(const std::string& fragmentShader) {
  TavrelGPUImageContext& context = *TavrelGPUImageContext::sharedImageProcessingContext();
  if (!TavrelGPUImageContext::deepTextureOptions()) {
    return {context, kTavrelGPUImageVertexShaderString,
            "#define IN varying\n#define TEXTURE texture2D\n#define OUTPUT gl_FragColor\n#define LOOP(i, most, count) "
            "for (int i = 0; i < most; ++i) if (float(i) < count)\n" +
                fragmentShader};
  }
  return {context,
          "#version 300 es\nin vec4 position; in vec4 inputTextureCoordinate; out highp vec2 textureCoordinate; void "
          "main() { gl_Position = position; textureCoordinate = inputTextureCoordinate.xy; }",
          "#version 300 es\n#define IN in\n#define TEXTURE texture\n#define OUTPUT color\n#define LOOP(i, most, count) "
          "for (int i = 0; i < int(count); ++i)\nout highp vec4 color;\n" +
              fragmentShader};
}

}  // namespace tavrel
