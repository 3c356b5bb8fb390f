#include "Capture/Video/Private/CameraZoomFilter.h"

namespace tavrel {
namespace {

// Two neighbours of the same sign are one sample between them, where the driver mixes them in their proportion.
constexpr const char* kFragmentShader = R"(
    varying highp vec2 textureCoordinate;
    uniform sampler2D inputImageTexture;
    uniform highp float part;
    uniform highp vec2 pixels;
    void main() {
      highp vec2 place = (0.5 + (textureCoordinate - 0.5) * part) * pixels;
      highp vec2 middle = floor(place - 0.5) + 0.5;
      highp vec2 f = place - middle;
      highp vec2 w0 = f * (-0.5 + f * (1.0 - 0.5 * f));
      highp vec2 w1 = 1.0 + f * f * (-2.5 + 1.5 * f);
      highp vec2 w2 = f * (0.5 + f * (2.0 - 1.5 * f));
      highp vec2 w3 = f * f * (-0.5 + 0.5 * f);
      highp vec2 w12 = w1 + w2;
      highp vec2 p0 = (middle - 1.0) / pixels;
      highp vec2 p12 = (middle + w2 / w12) / pixels;
      highp vec2 p3 = (middle + 2.0) / pixels;
      highp vec4 color =
          (texture2D(inputImageTexture, vec2(p0.x, p0.y)) * w0.x + texture2D(inputImageTexture, vec2(p12.x, p0.y)) * w12.x +
           texture2D(inputImageTexture, vec2(p3.x, p0.y)) * w3.x) * w0.y +
          (texture2D(inputImageTexture, vec2(p0.x, p12.y)) * w0.x + texture2D(inputImageTexture, p12) * w12.x +
           texture2D(inputImageTexture, vec2(p3.x, p12.y)) * w3.x) * w12.y +
          (texture2D(inputImageTexture, vec2(p0.x, p3.y)) * w0.x + texture2D(inputImageTexture, vec2(p12.x, p3.y)) * w12.x +
           texture2D(inputImageTexture, p3) * w3.x) * w3.y;
      gl_FragColor = clamp(color, 0.0, 1.0);
    })";

}  // namespace

CameraZoomFilter::CameraZoomFilter() : TavrelGPUImageFilter(kFragmentShader) { setFactor(1); }

}  // namespace tavrel
