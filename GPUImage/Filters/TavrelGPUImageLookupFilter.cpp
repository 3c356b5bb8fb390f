#include "GPUImage/Filters/TavrelGPUImageLookupFilter.h"

#include "GPUImage/Private/Properties.h"
#include "Platform/Foundation/Finite.h"

namespace tavrel {

const char* const kTavrelGPUImageLookupFragmentShaderString =
    "varying highp vec2 textureCoordinate; varying highp vec2 textureCoordinate2; uniform sampler2D "
    "inputImageTexture; uniform sampler2D inputImageTexture2; uniform lowp float intensity; void main() { highp "
    "vec4 textureColor = texture2D(inputImageTexture, textureCoordinate); highp float blueColor = textureColor.b * "
    "63.0; highp vec2 quad1; quad1.y = floor(floor(blueColor) / 8.0); quad1.x = floor(blueColor) - (quad1.y * "
    "8.0); highp vec2 quad2; quad2.y = floor(ceil(blueColor) / 8.0); quad2.x = ceil(blueColor) - (quad2.y * 8.0); "
    "highp vec2 texPos1; texPos1.x = (quad1.x * 0.125) + 0.5/512.0 + ((0.125 - 1.0/512.0) * textureColor.r); "
    "texPos1.y = (quad1.y * 0.125) + 0.5/512.0 + ((0.125 - 1.0/512.0) * textureColor.g); highp vec2 texPos2; "
    "texPos2.x = (quad2.x * 0.125) + 0.5/512.0 + ((0.125 - 1.0/512.0) * textureColor.r); texPos2.y = (quad2.y * "
    "0.125) + 0.5/512.0 + ((0.125 - 1.0/512.0) * textureColor.g); lowp vec4 newColor1 = "
    "texture2D(inputImageTexture2, texPos1); lowp vec4 newColor2 = texture2D(inputImageTexture2, texPos2); lowp "
    "vec4 newColor = mix(newColor1, newColor2, fract(blueColor)); gl_FragColor = mix(textureColor, "
    "vec4(newColor.rgb, textureColor.w), intensity); }";

const char* const kTavrelGPUImagePremultipliedLookupFragmentShaderString =
    "varying highp vec2 textureCoordinate; varying highp vec2 textureCoordinate2; uniform sampler2D inputImageTexture; "
    "uniform sampler2D inputImageTexture2; uniform lowp float intensity; void main() { highp vec4 textureColor = "
    "texture2D(inputImageTexture, textureCoordinate); textureColor.rgb = textureColor.a > 0.0 ? min(textureColor.rgb / "
    "textureColor.a, 1.0) : vec3(0.0); highp float blueColor = textureColor.b * 63.0; highp vec2 quad1; quad1.y = "
    "floor(floor(blueColor) / 8.0); quad1.x = floor(blueColor) - (quad1.y * 8.0); highp vec2 quad2; quad2.y = "
    "floor(ceil(blueColor) / 8.0); quad2.x = ceil(blueColor) - (quad2.y * 8.0); highp vec2 texPos1; texPos1.x = "
    "(quad1.x * 0.125) + 0.5/512.0 + ((0.125 - 1.0/512.0) * textureColor.r); texPos1.y = (quad1.y * 0.125) + 0.5/512.0 "
    "+ ((0.125 - 1.0/512.0) * textureColor.g); highp vec2 texPos2; texPos2.x = (quad2.x * 0.125) + 0.5/512.0 + ((0.125 "
    "- 1.0/512.0) * textureColor.r); texPos2.y = (quad2.y * 0.125) + 0.5/512.0 + ((0.125 - 1.0/512.0) * "
    "textureColor.g); lowp vec4 newColor1 = texture2D(inputImageTexture2, texPos1); lowp vec4 newColor2 = "
    "texture2D(inputImageTexture2, texPos2); lowp vec4 newColor = mix(newColor1, newColor2, fract(blueColor)); "
    "gl_FragColor = vec4(mix(textureColor.rgb, newColor.rgb, intensity) * textureColor.a, textureColor.a); }";

struct TavrelGPUImageLookupFilter::Implementation {
  double intensity = 0;
  GLint intensityUniform;
};

TavrelGPUImageLookupFilter::TavrelGPUImageLookupFilter()
    : TavrelGPUImageLookupFilter(kTavrelGPUImageLookupFragmentShaderString) {}

TavrelGPUImageLookupFilter::TavrelGPUImageLookupFilter(const char* fragmentShaderString)
    : TavrelGPUImageTwoInputFilter(fragmentShaderString),
      implementation_(new Implementation{.intensityUniform = uniformIndex("intensity")}) {
  allowFusion();
  setIntensity(1);
}

TavrelGPUImageLookupFilter::~TavrelGPUImageLookupFilter() = default;

TAVREL_NODE_VALUE(TavrelGPUImageLookupFilter, double, intensity)

void TavrelGPUImageLookupFilter::setIntensity(double newValue) {
  if (!isFinite(newValue)) return;
  onVideoProcessingQueue([&] {
    implementation_->intensity = newValue;
    setFloat(static_cast<GLfloat>(newValue), implementation_->intensityUniform, program());
  });
}

}  // namespace tavrel
