#include "GPUImage/Private/PendingDrawing.h"

#include <algorithm>
#include <array>
#include <cmath>
#include <cstdint>
#include <utility>

#include "GPUImage/Private/DrawnParts.h"
#include "GPUImage/Private/FramebufferContents.h"
#include "GPUImage/Private/PixelSampler.h"
#include "GPUImage/Private/QuadProgram.h"
#include "GPUImage/Private/StageProgram.h"
#include "GPUImage/TavrelGPUImageContext.h"
#include "GPUImage/TavrelGPUImageFramebuffer.h"
#include "Platform/Foundation/Environment.h"

namespace tavrel {
namespace {

// What OpenGL ES 2.0 has at least: eight textures, and eight vertex attributes, of which one is for the corners.
constexpr std::size_t kMostTextures = 8;
constexpr std::size_t kMostPlaces = 7;
constexpr std::size_t kMostStages = 8;

Size wholePixels(Size size) { return {std::floor(size.width), std::floor(size.height)}; }

/// The same map between pixels.
AffineTransform betweenPixels(const AffineTransform& map, Size size, Size texture) {
  return AffineTransform::makeScale(1 / size.width, 1 / size.height)
      .concatenating(map)
      .concatenating(AffineTransform::makeScale(texture.width, texture.height));
}

/// Where what was at `area` lies in a frame of `size` whose pixels are those of the old one at `map`.
Rect turnedArea(const Rect& area, const AffineTransform& map, Size size) {
  const auto before = [&](double x, double y) {
    // The turn's inverse is its transpose.
    const double dx = x - map.tx, dy = y - map.ty;
    return Point{std::clamp(std::round(map.a * dx + map.b * dy), 0.0, size.width),
                 std::clamp(std::round(map.c * dx + map.d * dy), 0.0, size.height)};
  };
  const Point first = before(area.minX(), area.minY()), second = before(area.maxX(), area.maxY());
  const Point least = {std::min(first.x, second.x), std::min(first.y, second.y)};
  return {least, {std::max(first.x, second.x) - least.x, std::max(first.y, second.y) - least.y}};
}

}  // namespace

bool PendingDrawing::isOn() {
  static const bool answer = environmentVariable("TAVREL_FUSE").value_or("1") != "0";
  return answer;
}

AffineTransform PendingDrawing::mapOf(const GLfloat* corners) {
  const std::array<double, 2> origin = {corners[0], corners[1]};
  return {corners[2] - origin[0],
          corners[3] - origin[1],
          corners[4] - origin[0],
          corners[5] - origin[1],
          origin[0],
          origin[1]};
}

bool PendingDrawing::meetsPixels(const AffineTransform& map, Size size, Size texture) {
  const Size drawn = wholePixels(size), whole = wholePixels(texture);
  if (drawn.width < 1 || drawn.height < 1 || whole.width < 1 || whole.height < 1) return false;
  // Less than samplers tell apart, over the whole frame.
  constexpr double kTolerance = 1.0 / 1024;
  const AffineTransform pixels = betweenPixels(map, drawn, whole);
  const auto isWhole = [](double value, double tolerance) { return std::abs(value - std::round(value)) <= tolerance; };
  const double slack = kTolerance / std::max(drawn.width, drawn.height);
  for (const double step : {pixels.a, pixels.b, pixels.c, pixels.d}) {
    if (!isWhole(step, slack) || std::abs(step) > 1.5) return false;
  }
  if (std::abs(std::abs(pixels.a * pixels.d - pixels.b * pixels.c) - 1) > 0.5) return false;
  if (!isWhole(pixels.tx, kTolerance) || !isWhole(pixels.ty, kTolerance)) return false;
  const Point first = pixels.apply({0, 0}), last = pixels.apply({drawn.width, drawn.height});
  return std::min(first.x, last.x) > -0.5 && std::max(first.x, last.x) < whole.width + 0.5 &&
         std::min(first.y, last.y) > -0.5 && std::max(first.y, last.y) < whole.height + 0.5;
}

bool PendingDrawing::endsAtEdges(const TavrelGPUImageFramebuffer& framebuffer) {
  const TavrelGPUTextureOptions& options = framebuffer.textureOptions();
  return options.wrapS == GL_CLAMP_TO_EDGE && options.wrapT == GL_CLAMP_TO_EDGE;
}

PendingDrawing::PendingDrawing(TavrelGPUImageFramebufferLease source)
    : source_(std::move(source)), size_(wholePixels(source_.get()->size())) {}

bool PendingDrawing::isPlain() const { return stages_.empty() && sourcePlace_.isIdentity(); }

bool PendingDrawing::hasRoomFor(const ShaderStage& stage) const {
  std::size_t textures = 1, places = 1;
  const auto add = [&](const ShaderStage& added) {
    textures += (added.hasSecondInput ? 1U : 0U) + added.tables.size();
    places += (added.usesPlace ? 1U : 0U) + (added.usesSecondPlace ? 1U : 0U);
  };
  for (const Stage& known : stages_) add(*known.shader);
  add(stage);
  return stages_.size() < kMostStages && textures <= kMostTextures && places <= kMostPlaces;
}

void PendingDrawing::turn(const AffineTransform& map, Size size) {
  const Size turned = wholePixels(size);
  const AffineTransform pixels = betweenPixels(map, turned, size_);
  sourcePlace_ = map.concatenating(sourcePlace_);
  for (Stage& stage : stages_) {
    stage.place = map.concatenating(stage.place);
    stage.secondPlace = map.concatenating(stage.secondPlace);
    if (stage.area) stage.area = turnedArea(*stage.area, pixels, turned);
  }
  size_ = turned;
}

void PendingDrawing::add(Stage stage) { stages_.push_back(std::move(stage)); }

void PendingDrawing::draw() const {
  for (const Part& part : parts()) drawPart(part);
}

std::vector<PendingDrawing::Part> PendingDrawing::parts() const {
  std::vector<std::optional<Rect>> areas;
  for (const Stage& stage : stages_) areas.push_back(stage.area);
  std::vector<Part> parts;
  for (const DrawnPart& part : drawnParts(static_cast<int>(size_.width), static_cast<int>(size_.height), areas)) {
    if (parts.empty() || parts.back().areas != part.areas) parts.push_back({.areas = part.areas});
    parts.back().rectangles.push_back(
        {{static_cast<double>(part.left), static_cast<double>(part.bottom)},
         {static_cast<double>(part.right - part.left), static_cast<double>(part.top - part.bottom)}});
  }
  return parts;
}

PendingDrawing::Layout PendingDrawing::layoutOf(std::uint32_t areas) const {
  Layout layout;
  const auto placeOf = [&places = layout.places](AffineTransform map, const TavrelGPUImageFramebuffer& texture) {
    const Point shift = QuadProgram::shiftOf(QuadTexture(&texture));
    map.tx += shift.x;
    map.ty += shift.y;
    const auto known = std::ranges::find(places, map);
    if (known != places.end()) return static_cast<std::size_t>(known - places.begin());
    places.push_back(map);
    return places.size() - 1;
  };
  placeOf(sourcePlace_, *source_.get());
  for (std::size_t i = 0; i < stages_.size(); ++i) {
    if ((areas & (1U << i)) == 0) continue;
    const Stage& stage = stages_[i];
    auto& description = layout.described.emplace_back(StageProgram::Stage{.shader = stage.shader.get()});
    if (stage.shader->usesPlace) description.place = placeOf(stage.place, *source_.get());
    if (stage.shader->usesSecondPlace) description.secondPlace = placeOf(stage.secondPlace, *stage.second.get());
    layout.stages.push_back(&stage);
  }
  return layout;
}

std::vector<PrecompiledProgram> PendingDrawing::unknownPrograms() const {
  std::vector<PrecompiledProgram> programs;
  for (const Part& part : parts()) {
    const Layout layout = layoutOf(part.areas);
    if (StageProgram::isMade(layout.described, layout.places.size())) continue;
    PrecompiledProgram& program =
        programs.emplace_back(StageProgram::described(layout.described, layout.places.size()));
    std::size_t unit = 0;
    const auto describe = [&](const TavrelGPUImageFramebuffer& framebuffer, bool showsPixels) {
      PrecompiledProgram::Texture& texture = program.textures[unit++];
      FramebufferContents::describe(framebuffer, texture);
      texture.givesSinglePixels = showsPixels && endsAtEdges(framebuffer);
    };
    describe(*source_.get(), true);
    for (const Stage* stage : layout.stages) {
      if (stage->second) describe(*stage->second.get(), stage->secondMeetsPixels);
    }
  }
  return programs;
}

void PendingDrawing::drawPart(const Part& part) const {
  // Which GL reads when it draws.
  static auto& corners = *new std::vector<GLfloat>;
  const auto& [stages, described, places] = layoutOf(part.areas);
  const std::vector<Rect>& parts = part.rectangles;
  const StageProgram& program = StageProgram::of(described, places.size());
  TavrelGPUImageContext::setActiveShaderProgram(program.program());
  GLuint units = 0;
  const auto bind = [&units](const TavrelGPUImageFramebuffer& framebuffer, GLint sampler, bool showsPixels) {
    const GLuint texture = framebuffer.texture();
    glActiveTexture(GL_TEXTURE0 + units);
    glBindTexture(GL_TEXTURE_2D, texture);
    glUniform1i(sampler, static_cast<GLint>(units));
    if (showsPixels && endsAtEdges(framebuffer)) PixelSampler::bind(units);
    ++units;
  };
  bind(*source_.get(), program.source(), true);
  for (std::size_t i = 0; i < stages.size(); ++i) {
    if (stages[i]->second) bind(*stages[i]->second.get(), program.second(i), stages[i]->secondMeetsPixels);
    for (std::size_t k = 0; k < program.tables(i).size(); ++k) {
      bind(*(*stages[i]->tables)[k], program.tables(i)[k], false);
    }
    for (std::size_t k = 0; k < program.uniforms(i).size(); ++k) {
      const auto setter = stages[i]->uniforms->find((*stages[i]->locations)[k]);
      if (setter != stages[i]->uniforms->end()) setter->second(program.uniforms(i)[k]);
    }
  }

  corners.clear();
  const auto add = [&](const AffineTransform& map) {
    for (const Rect& area : parts) {
      for (const Point corner : {Point{area.minX(), area.minY()}, Point{area.maxX(), area.minY()},
                                 Point{area.minX(), area.maxY()}, Point{area.maxX(), area.maxY()}}) {
        const Point moved = map.apply({corner.x / size_.width, corner.y / size_.height});
        corners.insert(corners.end(), {static_cast<GLfloat>(moved.x), static_cast<GLfloat>(moved.y)});
      }
    }
  };
  add({2, 0, 0, 2, -1, -1});
  for (const AffineTransform& place : places) add(place);
  for (std::size_t i = 0; i <= places.size(); ++i) {
    glEnableVertexAttribArray(static_cast<GLuint>(i));
    glVertexAttribPointer(static_cast<GLuint>(i), 2, GL_FLOAT, GL_FALSE, 0, &corners[i * parts.size() * 8]);
  }
  for (std::size_t i = 0; i < parts.size(); ++i) glDrawArrays(GL_TRIANGLE_STRIP, static_cast<GLint>(4 * i), 4);
  for (GLuint unit = 0; unit < units; ++unit) PixelSampler::unbind(unit);
  // The first three are in use by every filter's quad.
  for (std::size_t i = 3; i <= places.size(); ++i) glDisableVertexAttribArray(static_cast<GLuint>(i));
}

}  // namespace tavrel
