#include "GPUImage/Filters/TavrelGPUImageAlphaBlendFilter.h"

#include "GPUImage/Private/Properties.h"
#include "Platform/Foundation/Finite.h"

namespace tavrel {

const char* const kTavrelGPUImageAlphaBlendFragmentShaderString =
    "varying highp vec2 textureCoordinate; varying highp vec2 textureCoordinate2; uniform sampler2D "
    "inputImageTexture; uniform sampler2D inputImageTexture2; uniform lowp float mixturePercent; void main() { "
    "lowp vec4 textureColor = texture2D(inputImageTexture, textureCoordinate); lowp vec4 textureColor2 = "
    "texture2D(inputImageTexture2, textureCoordinate2); gl_FragColor = vec4(mix(textureColor.rgb, "
    "textureColor2.rgb, textureColor2.a * mixturePercent), textureColor.a); }";

struct TavrelGPUImageAlphaBlendFilter::Implementation {
  double mix = 0;
  GLint mixUniform;
};

TavrelGPUImageAlphaBlendFilter::TavrelGPUImageAlphaBlendFilter()
    : TavrelGPUImageTwoInputFilter(kTavrelGPUImageAlphaBlendFragmentShaderString),
      implementation_(new Implementation{.mixUniform = uniformIndex("mixturePercent")}) {
  allowFusion();
  setMix(0.5);
}

TavrelGPUImageAlphaBlendFilter::~TavrelGPUImageAlphaBlendFilter() = default;

TAVREL_NODE_VALUE(TavrelGPUImageAlphaBlendFilter, double, mix)

void TavrelGPUImageAlphaBlendFilter::setMix(double newValue) {
  if (!isFinite(newValue)) return;
  onVideoProcessingQueue([&] {
    implementation_->mix = newValue;
    setFloat(static_cast<GLfloat>(newValue), implementation_->mixUniform, program());
  });
}

}  // namespace tavrel
