#include "GPUImage/Filters/Private/InputScaling.h"

#include <algorithm>
#include <cmath>
#include <string>
#include <utility>

#include "GPUImage/Filters/Private/LightShaders.h"
#include "GPUImage/Filters/Private/PreciseProgram.h"
#include "GPUImage/TavrelGLProgram.h"
#include "GPUImage/TavrelGPUImageFramebuffer.h"
#include "GPUImage/TavrelGPUImageFramebufferCache.h"

namespace tavrel {
namespace {

/// More than this at once are halves before.
constexpr double kMostAtOnce = 8;

constexpr const char* kHead = "IN highp vec2 textureCoordinate; uniform highp sampler2D inputImageTexture; ";

/// Two pixels with each sample. What lies outside has no weight.
constexpr const char* kTriangle =
    "uniform highp vec2 size; uniform highp vec2 reach; uniform highp vec2 count; highp vec2 weights(highp float "
    "pixel, highp float centre, highp float wide, highp float last) { highp vec2 places = vec2(pixel, pixel + 1.0); "
    "return max(1.0 - abs(places + 0.5 - centre) / wide, 0.0) * step(-0.5, places) * step(places + 0.5, vec2(last)); } "
    "void main() { highp vec2 centre = textureCoordinate * size; highp vec2 first = floor(centre - reach + 0.5); highp "
    "vec4 sum = vec4(0.0); highp float total = 0.0; LOOP(j, 8, count.y) { "
    "highp float row = first.y + float(j) * 2.0; highp vec2 down = weights(row, centre.y, reach.y, size.y); highp "
    "float rows = down.x + down.y; if (rows <= 0.0) continue; highp float y = (row + 0.5 + down.y / rows) / size.y; "
    "LOOP(i, 8, count.x) { highp float column = first.x + float(i) * 2.0; "
    "highp vec2 across = weights(column, centre.x, reach.x, size.x); highp float columns = across.x + across.y; if "
    "(columns <= 0.0) continue; highp float weight = rows * columns; sum += TEXTURE(inputImageTexture, vec2((column + "
    "0.5 + across.y / columns) / size.x, y)) * weight; total += weight; } } highp vec4 result = sum / total; ";

/// Keys's, with a slope of a half.
constexpr const char* kBicubic =
    "uniform highp vec2 size; highp float weightAt(highp float pixel, highp float centre, highp float last) { highp "
    "float x = abs(pixel + 0.5 - centre); if (pixel < -0.5 || pixel > last - 0.5 || x >= 2.0) return 0.0; return x < "
    "1.0 ? (1.5 * x - 2.5) * x * x + 1.0 : ((2.5 - 0.5 * x) * x - 4.0) * x + 2.0; } void main() { highp vec2 centre = "
    "textureCoordinate * size; highp vec2 first = floor(centre - 1.5); highp vec4 sum = vec4(0.0); highp float total = "
    "0.0; for (int j = 0; j < 4; ++j) { highp float row = first.y + float(j); highp float rows = weightAt(row, "
    "centre.y, size.y); for (int i = 0; i < 4; ++i) { highp float column = first.x + float(i); highp float weight = "
    "rows * weightAt(column, centre.x, size.x); if (weight == 0.0) continue; sum += TEXTURE(inputImageTexture, "
    "(vec2(column, row) + 0.5) / size) * weight; total += weight; } } highp vec4 result = sum / total; result.a = "
    "clamp(result.a, 0.0, 1.0); result.rgb = clamp(result.rgb, 0.0, result.a); ";

constexpr const char* kAsItIs = "OUTPUT = result; }";
constexpr const char* kFromLight = "OUTPUT = sRGBOf(result); }";
constexpr const char* kToLight = "void main() { OUTPUT = lightOf(TEXTURE(inputImageTexture, textureCoordinate)); }";

double largest(Size size) { return std::max(size.width, size.height); }
double smallest(Size size) { return std::min(size.width, size.height); }

/// Without a hundredth of a pixel that comes of rounding.
Size wholePixels(Size size) {
  return {std::max(1.0, std::ceil(size.width - 0.01)), std::max(1.0, std::ceil(size.height - 0.01))};
}

}  // namespace

const InputScaling::Program& InputScaling::program(Kind kind) {
  Program& program = programs_[kind];
  if (program.quad) return program;
  const std::string head = std::string(kHead) + kLightFunctions;
  switch (kind) {
    case triangle: program.quad = makePreciseProgram(std::string(kHead) + kTriangle + kAsItIs); break;
    case triangleFromLight: program.quad = makePreciseProgram(head + kTriangle + kFromLight); break;
    case bicubic: program.quad = makePreciseProgram(std::string(kHead) + kBicubic + kAsItIs); break;
    case bicubicFromLight: program.quad = makePreciseProgram(head + kBicubic + kFromLight); break;
    default: program.quad = makePreciseProgram(head + kToLight);
  }
  program.size = program.quad.program()->uniformIndex("size");
  program.reach = program.quad.program()->uniformIndex("reach");
  program.count = program.quad.program()->uniformIndex("count");
  return program;
}

void InputScaling::draw(Kind kind, const TavrelGPUImageFramebufferLease& input, const Rect& part, Size scale,
                        const Size& size) {
  const TavrelGPUTextureOptions deep = TavrelGPUImageContext::deepTextureOptions().value_or(TavrelGPUTextureOptions{});
  const bool isDeep = kind == toLight || input.get()->textureOptions().isDeep();
  const bool staysDeep = isDeep && (kind != triangleFromLight && kind != bicubicFromLight);
  auto framebuffer = TavrelGPUImageContext::sharedFramebufferCache()->fetchFramebufferForSize(
      size, staysDeep ? deep : TavrelGPUTextureOptions{}, false);
  framebuffer->activateFramebuffer();
  auto lease = TavrelGPUImageFramebufferLease::adopt(std::move(framebuffer));

  const Program& used = program(kind);
  used.quad.use();
  const Size whole = input.get()->size();
  const auto number = [](double value) { return static_cast<GLfloat>(value); };
  const Size reach = {std::max(1.0, scale.width), std::max(1.0, scale.height)};
  glUniform2f(used.size, number(whole.width), number(whole.height));
  glUniform2f(used.reach, number(reach.width), number(reach.height));
  const auto pairs = [&](double length) { return number(std::ceil(std::ceil(length * 2 - 0.001) / 2)); };
  glUniform2f(used.count, pairs(reach.width), pairs(reach.height));
  const GLfloat left = number(part.minX() / whole.width), right = number(part.maxX() / whole.width);
  const GLfloat bottom = number(part.minY() / whole.height), top = number(part.maxY() / whole.height);
  const Corners corners = {left, bottom, right, bottom, left, top, right, top};
  used.quad.setTexture(0, QuadTexture(input.get().get()), 2, corners.data());
  used.quad.draw(TavrelGPUImageFilter::fullFrameVertices());
  drawn_ = std::move(lease);
}

void InputScaling::letGo() {
  if (wish_.still == 0) scaled_.reset();
}

const InputScaling::Scaled* InputScaling::scale(const TavrelGPUImageFramebufferLease& input, const GLfloat* corners,
                                                Size drawn) {
  const TavrelGPUImageScaling scaling = TavrelGPUImageContext::scaling();
  Wish wish = {input ? input.get()->stillNumber() : 0, {}, drawn, scaling};
  std::copy_n(corners, wish.corners.size(), wish.corners.begin());
  if (scaled_ && wish == wish_) return &*scaled_;
  scaled_.reset();
  wish_ = wish;
  if (!input || smallest(drawn) <= 0) return nullptr;
  const Size whole = input.get()->size();
  const auto [left, right] = std::minmax({corners[0], corners[2], corners[4], corners[6]});
  const auto [bottom, top] = std::minmax({corners[1], corners[3], corners[5], corners[7]});
  const bool isTurned = std::abs(corners[2] - corners[0]) < std::abs(corners[3] - corners[1]);
  if (isTurned) std::swap(drawn.width, drawn.height);
  Rect part = {{left * whole.width, bottom * whole.height},
               {(right - left) * whole.width, (top - bottom) * whole.height}};
  Size factor = {part.size.width / drawn.width, part.size.height / drawn.height};
  const bool isReduced = largest(factor) > kLeastReduction;
  const bool isEnlarged = scaling.enlargesByBicubic && !isReduced && smallest(factor) < 1 / kLeastEnlargement;
  if ((!isReduced && !isEnlarged) || smallest(part.size) <= 0) return nullptr;
  // Somebody has asked for single pixels, or for mipmaps.
  GLint filter = 0;
  glActiveTexture(GL_TEXTURE2);
  glBindTexture(GL_TEXTURE_2D, input.texture());
  glGetTexParameteriv(GL_TEXTURE_2D, GL_TEXTURE_MIN_FILTER, &filter);
  if (filter != GL_LINEAR) return nullptr;

  const bool inLight = scaling.worksInLight && TavrelGPUImageContext::deepTextureOptions();
  if (inLight) draw(toLight, input, {{0, 0}, whole}, {1, 1}, wholePixels(whole));
  const auto texture = [&]() -> const TavrelGPUImageFramebufferLease& { return drawn_ ? drawn_ : input; };
  while (largest(factor) > kMostAtOnce) {
    const Size half = {factor.width > kMostAtOnce ? 2.0 : 1.0, factor.height > kMostAtOnce ? 2.0 : 1.0};
    const Size smaller = wholePixels({part.size.width / half.width, part.size.height / half.height});
    draw(triangle, texture(), {part.origin, {smaller.width * half.width, smaller.height * half.height}}, half, smaller);
    part = {{0, 0}, {part.size.width / half.width, part.size.height / half.height}};
    factor = {factor.width / half.width, factor.height / half.height};
  }
  const Kind kind = isReduced ? (inLight ? triangleFromLight : triangle) : inLight ? bicubicFromLight : bicubic;
  draw(kind, texture(), part, factor, wholePixels(drawn));

  scaled_ = {.framebuffer = std::move(drawn_)};
  for (std::size_t i = 0; i < wish.corners.size(); ++i) {
    const auto [first, last] = i % 2 == 0 ? std::pair(left, right) : std::pair(bottom, top);
    scaled_->corners[i] = corners[i] == last ? 1 : corners[i] == first ? 0 : (corners[i] - first) / (last - first);
  }
  return &*scaled_;
}

}  // namespace tavrel
