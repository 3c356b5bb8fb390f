#include "GPUImage/Filters/TavrelGPUImageAlphaBlendFilter.h"

namespace tavrel {

const char* const kTavrelGPUImageAlphaBlendFragmentShaderString =
    "varying highp vec2 textureCoordinate; varying highp vec2 textureCoordinate2; uniform sampler2D "
    "inputImageTexture; uniform sampler2D inputImageTexture2; uniform lowp float mixturePercent; void main() { "
    "lowp vec4 textureColor = texture2D(inputImageTexture, textureCoordinate); lowp vec4 textureColor2 = "
    "texture2D(inputImageTexture2, textureCoordinate2); gl_FragColor = vec4(mix(textureColor.rgb, "
    "textureColor2.rgb, textureColor2.a * mixturePercent), textureColor.a); }";

TavrelGPUImageAlphaBlendFilter::TavrelGPUImageAlphaBlendFilter()
    : TavrelGPUImageTwoInputFilter(kTavrelGPUImageAlphaBlendFragmentShaderString),
      mixUniform(uniformIndex("mixturePercent")) {
  setMix(0.5);
}

void TavrelGPUImageAlphaBlendFilter::setMix(double newValue) {
  mix_ = newValue;
  setFloat(static_cast<GLfloat>(newValue), mixUniform, filterProgram);
}

}  // namespace tavrel
