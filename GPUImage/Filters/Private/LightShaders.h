#pragma once

namespace tavrel {

/// GLSL: `lightOf` makes linear light of premultiplied sRGB, and `sRGBOf` the way back (IEC 61966-2-1).
inline constexpr const char* kLightFunctions =
    "highp vec3 straightOf(highp vec4 color) { return clamp(color.rgb / max(color.a, 0.0001), 0.0, 1.0); } highp vec4 "
    "lightOf(highp vec4 color) { highp vec3 value = straightOf(color); return vec4(mix(pow((value + 0.055) / 1.055, "
    "vec3(2.4)), value / 12.92, step(value, vec3(0.04045))) * color.a, color.a); } highp vec4 sRGBOf(highp vec4 color) "
    "{ highp vec3 light = straightOf(color); return vec4(mix(1.055 * pow(light, vec3(1.0 / 2.4)) - 0.055, light * "
    "12.92, step(light, vec3(0.0031308))) * color.a, color.a); } ";

}  // namespace tavrel
