#include "GPUImage/Filters/TavrelGPUImageColorTableFilter.h"

#include <string>
#include <vector>

#include "GPUImage/Filters/Private/ColorTable.h"
#include "GPUImage/Filters/Private/FilterImplementation.h"
#include "GPUImage/Private/Properties.h"
#include "GPUImage/TavrelGLProgram.h"
#include "GPUImage/TavrelGPUImageFramebuffer.h"
#include "Platform/Foundation/Finite.h"

namespace tavrel {
namespace {

/// Entries lie in rows of so many texels.
constexpr std::size_t kTexelsInRow = 4096;

// Entries are met exactly, without the sampler's interpolation, which has too few bits.
constexpr const char* kBeginning =
    "varying highp vec2 textureCoordinate; uniform highp sampler2D inputImageTexture; uniform highp vec2 rangeBefore; "
    "uniform highp vec2 rangeBehind; uniform highp float intensity; "
    "highp vec3 entry(highp sampler2D table, highp float index, highp float rows) { highp float row = floor(index / "
    "4096.0); return texture2D(table, vec2((index - row * 4096.0 + 0.5) / 4096.0, (row + 0.5) / rows)).rgb; } "
    "highp vec3 places(highp vec3 color, highp vec3 minimum, highp vec3 scale, highp float size) { return clamp((color "
    "- minimum) * scale, 0.0, 1.0) * (size - 1.0); } ";
constexpr const char* kCurves =
    "uniform highp sampler2D curves; uniform highp vec2 curvesSize; uniform highp vec3 curvesMinimum; uniform highp "
    "vec3 curvesScale; highp vec3 curved(highp vec3 color) { highp vec3 place = places(color, curvesMinimum, "
    "curvesScale, curvesSize.x); "
    "highp vec3 below = min(floor(place), curvesSize.x - 2.0); highp vec3 part = place - below; highp vec3 first = "
    "vec3(entry(curves, below.r, curvesSize.y).r, entry(curves, below.g, curvesSize.y).g, entry(curves, below.b, "
    "curvesSize.y).b); highp vec3 second = vec3(entry(curves, below.r + 1.0, curvesSize.y).r, entry(curves, below.g + "
    "1.0, curvesSize.y).g, entry(curves, below.b + 1.0, curvesSize.y).b); return first + (second - first) * part; } ";
// From the corner below to the one above along the component with the largest part first, and with the smallest last.
constexpr const char* kLattice =
    "uniform highp sampler2D lattice; uniform highp vec2 latticeSize; uniform highp vec3 latticeMinimum; uniform highp "
    "vec3 latticeScale; highp vec3 corner(highp vec3 place) { return entry(lattice, (place.b * latticeSize.x + "
    "place.g) * latticeSize.x + "
    "place.r, latticeSize.y); } highp vec3 mapped(highp vec3 color) { highp vec3 place = places(color, latticeMinimum, "
    "latticeScale, latticeSize.x); highp vec3 below = min(floor(place), latticeSize.x - 2.0); highp vec3 part = place "
    "- "
    "below; highp vec3 first; first.r = step(max(part.g, part.b), part.r); first.g = (1.0 - first.r) * step(part.b, "
    "part.g); first.b = 1.0 - first.r - first.g; highp vec3 last; last.b = step(part.b, min(part.r, part.g)); last.g = "
    "(1.0 - last.b) * step(part.g, part.r); last.r = 1.0 - last.b - last.g; highp float most = max(part.r, max(part.g, "
    "part.b)); highp float least = min(part.r, min(part.g, part.b)); highp float middle = part.r + part.g + part.b - "
    "most - least; return corner(below) * (1.0 - most) + corner(below + first) * (most - middle) + corner(below + 1.0 "
    "- last) * (middle - least) + corner(below + 1.0) * least; } ";
constexpr const char* kMainBegins =
    "void main() { highp vec4 pixel = texture2D(inputImageTexture, textureCoordinate); highp vec3 straight = pixel.a > "
    "0.0 ? min(pixel.rgb / pixel.a, 1.0) : vec3(0.0); highp vec3 color = straight * rangeBefore.x + rangeBefore.y; ";
constexpr const char* kMainEnds =
    "color = clamp(color * rangeBehind.x + rangeBehind.y, 0.0, 1.0); gl_FragColor = vec4(mix(straight, color, "
    "intensity) * pixel.a, pixel.a); }";

const ColorStage* stageOf(const ColorTable& table, ColorStage::Kind kind) {
  for (const ColorStage& stage : table.stages) {
    if (stage.kind == kind) return &stage;
  }
  return nullptr;
}

/// Tables of curves before a lattice, of one of them, or of curves before curves.
std::string shaderFor(const ColorTable& table) {
  std::string shader = kBeginning;
  std::string main = kMainBegins;
  if (stageOf(table, ColorStage::Kind::curves)) {
    shader += kCurves;
    main += "color = curved(color); ";
  }
  if (stageOf(table, ColorStage::Kind::lattice)) {
    shader += kLattice;
    main += "color = mapped(color); ";
  }
  return shader + main + kMainEnds;
}

std::size_t textureRows(const ColorStage& stage) { return (stage.rows() + kTexelsInRow - 1) / kTexelsInRow; }

std::shared_ptr<TavrelGPUImageFramebuffer> upload(const ColorStage& stage) {
  constexpr std::size_t kMostStepsOfFullPrecision = 65;
  const std::size_t rows = textureRows(stage);
  std::vector<float> texels(rows * kTexelsInRow * 4);
  for (std::size_t i = 0; i < stage.rows(); ++i) {
    for (std::size_t c = 0; c < 3; ++c) texels[i * 4 + c] = stage.colors[i][c];
  }
  const bool isLarge = stage.kind == ColorStage::Kind::lattice && stage.size > kMostStepsOfFullPrecision;
  const TavrelGPUTextureOptions options = {
      .minFilter = GL_NEAREST,
      .magFilter = GL_NEAREST,
      .internalFormat = static_cast<GLenum>(isLarge ? GL_RGBA16F_EXT : GL_RGBA32F_EXT),
      .format = GL_RGBA,
      .type = GL_FLOAT};
  auto framebuffer = std::make_shared<TavrelGPUImageFramebuffer>(
      Size{static_cast<double>(kTexelsInRow), static_cast<double>(rows)}, options, true);
  framebuffer->uploadPicture(kTexelsInRow, static_cast<GLsizei>(rows), GL_RGBA, texels.data());
  return framebuffer;
}

}  // namespace

struct TavrelGPUImageColorTableFilter::Implementation {
  struct Table {
    const char* name;
    std::shared_ptr<TavrelGPUImageFramebuffer> texture;
    GLint unit;
  };
  std::vector<Table> tables;
  double intensity = 1;
};

TavrelGPUImageColorTableFilter::TavrelGPUImageColorTableFilter(const std::shared_ptr<const ColorTable>& table)
    : TavrelGPUImageFilter(shaderFor(*table)), implementation_(std::make_unique<Implementation>()) {
  onVideoProcessingQueue([&] {
    TavrelGPUImageContext::useImageProcessingContext();
    for (const ColorStage& stage : table->stages) {
      const bool isLattice = stage.kind == ColorStage::Kind::lattice;
      const std::string name = isLattice ? "lattice" : "curves";
      implementation_->tables.push_back({isLattice ? "lattice" : "curves", upload(stage), isLattice ? 4 : 3});
      setSize({static_cast<double>(stage.size), static_cast<double>(textureRows(stage))}, name + "Size");
      const auto scale = [&](std::size_t c) { return 1 / (stage.domainMaximum[c] - stage.domainMinimum[c]); };
      setFloatVec3({stage.domainMinimum[0], stage.domainMinimum[1], stage.domainMinimum[2]}, name + "Minimum");
      setFloatVec3({scale(0), scale(1), scale(2)}, name + "Scale");
    }
    const bool before = table->takesVideoRange;
    const bool behind = table->givesVideoRange;
    setSize({before ? kVideoSpan : 1.0, before ? kVideoBlack : 0.0}, "rangeBefore");
    setSize({behind ? 1 / kVideoSpan : 1.0, behind ? -kVideoBlack / kVideoSpan : 0.0}, "rangeBehind");
    for (const Implementation::Table& used : implementation_->tables) filter().fusion.setTable(used.name, used.texture);
    setIntensity(1);
  });
  allowFusion();
}

TavrelGPUImageColorTableFilter::~TavrelGPUImageColorTableFilter() = default;

bool TavrelGPUImageColorTableFilter::isSupported() {
  return TavrelGPUImageContext::deepTextureOptions().has_value() &&
         TavrelGPUImageContext::maximumTextureSizeForThisDevice() >= static_cast<GLint>(kTexelsInRow);
}

TAVREL_NODE_VALUE(TavrelGPUImageColorTableFilter, double, intensity)

void TavrelGPUImageColorTableFilter::setIntensity(double newValue) {
  if (!isFinite(newValue)) return;
  onVideoProcessingQueue([&] {
    implementation_->intensity = newValue;
    setFloat(static_cast<GLfloat>(newValue), "intensity");
  });
}

void TavrelGPUImageColorTableFilter::bindInputs(const GLfloat* textureCoordinates) {
  TavrelGPUImageFilter::bindInputs(textureCoordinates);
  for (const Implementation::Table& table : implementation_->tables) {
    glActiveTexture(static_cast<GLenum>(GL_TEXTURE0 + table.unit));
    glBindTexture(GL_TEXTURE_2D, table.texture->texture());
    glUniform1i(program()->uniformIndex(table.name), table.unit);
  }
}

}  // namespace tavrel
