#include "Platform/UI/Private/LayerRenderer.h"

#include <fmt/format.h>

#include <algorithm>
#include <array>
#include <cmath>
#include <string>

#include "Platform/Graphics/GLDrawable.h"
#include "Platform/Graphics/ShaderPreamble.h"
#include "Platform/UI/DrawableLayer.h"
#include "Platform/UI/UIStatus.h"

namespace tavrel {
namespace {

// Points are counted from the layer's centre. A corner of the quad is (0 or 1, 0 or 1).
constexpr const char* kVertexShader =
    "attribute vec2 corner; uniform mat3 toClip; uniform vec4 rectangle; uniform vec4 contentsRectangle; "
    "varying highp vec2 point; varying highp vec2 contentsPoint; void main() { "
    "point = rectangle.xy + corner * rectangle.zw; "
    "contentsPoint = contentsRectangle.xy + corner * contentsRectangle.zw; "
    "gl_Position = vec4((toClip * vec3(point, 1.0)).xy, 0.0, 1.0); }";

// The distance to a rounded rectangle's edge, in points, is turned into coverage over one pixel.
constexpr const char* kShapeFragmentShader =
    "precision highp float; varying highp vec2 point; uniform vec2 halfSize; uniform vec3 shape; uniform vec4 color; "
    "float coverage(float distance) { return clamp(0.5 - distance * shape.z, 0.0, 1.0); } void main() { "
    "vec2 q = abs(point) - halfSize + shape.x; "
    "float distance = length(max(q, 0.0)) + min(max(q.x, q.y), 0.0) - shape.x; "
    "gl_FragColor = color * (coverage(distance) - coverage(distance + shape.y)); }";

constexpr const char* kContentsFragmentShader =
    "precision highp float; varying highp vec2 contentsPoint; uniform sampler2D contents; uniform vec2 opacity; "
    "void main() { vec4 color = texture2D(contents, contentsPoint); "
    "gl_FragColor = vec4(color.rgb, max(color.a, opacity.y)) * opacity.x; }";

constexpr GLuint kCornerAttribute = 0;
constexpr double kFilled = 1e6;

GLuint compile(GLenum type, const char* source, std::string& log) {
  const GLuint shader = glCreateShader(type);
  const std::string whole = shaderSource(type, source);
  const char* const start = whole.c_str();
  glShaderSource(shader, 1, &start, nullptr);
  glCompileShader(shader);
  GLint isCompiled = GL_FALSE;
  glGetShaderiv(shader, GL_COMPILE_STATUS, &isCompiled);
  if (isCompiled == GL_TRUE) return shader;
  std::array<char, 512> text{};
  glGetShaderInfoLog(shader, static_cast<GLsizei>(text.size()), nullptr, text.data());
  log += text.data();
  return shader;
}

AffineTransform clipTransform(const LayerRenderer::Target& target) {
  const double x = 2 * target.scale / target.width;
  const double y = 2 * target.scale / target.height;
  return target.topRowFirst ? AffineTransform{x, 0, 0, y, -1, -1} : AffineTransform{x, 0, 0, -y, -1, 1};
}

void setMatrix(GLint uniform, const AffineTransform& t) {
  const std::array<GLfloat, 9> columns = {static_cast<GLfloat>(t.a),  static_cast<GLfloat>(t.b),  0,
                                          static_cast<GLfloat>(t.c),  static_cast<GLfloat>(t.d),  0,
                                          static_cast<GLfloat>(t.tx), static_cast<GLfloat>(t.ty), 1};
  glUniformMatrix3fv(uniform, 1, GL_FALSE, columns.data());
}

void setRectangle(GLint uniform, const Rect& rectangle) {
  glUniform4f(uniform, static_cast<GLfloat>(rectangle.origin.x), static_cast<GLfloat>(rectangle.origin.y),
              static_cast<GLfloat>(rectangle.size.width), static_cast<GLfloat>(rectangle.size.height));
}

}  // namespace

Expected<LayerRenderer::Program> LayerRenderer::link(const char* fragmentShader) {
  std::string log;
  const GLuint vertex = compile(GL_VERTEX_SHADER, kVertexShader, log);
  const GLuint fragment = compile(GL_FRAGMENT_SHADER, fragmentShader, log);
  Program program;
  program.name = glCreateProgram();
  glAttachShader(program.name, vertex);
  glAttachShader(program.name, fragment);
  glBindAttribLocation(program.name, kCornerAttribute, "corner");
  glLinkProgram(program.name);
  glDeleteShader(vertex);
  glDeleteShader(fragment);
  GLint isLinked = GL_FALSE;
  glGetProgramiv(program.name, GL_LINK_STATUS, &isLinked);
  if (isLinked != GL_TRUE) {
    glDeleteProgram(program.name);
    return failure(UIStatus::shadersRefused,
                   fmt::format("the compositor's shaders do not link with this driver: {}", log));
  }
  const auto locate = [&](const char* uniform) { return glGetUniformLocation(program.name, uniform); };
  program.toClip = locate("toClip");
  program.rectangle = locate("rectangle");
  program.halfSize = locate("halfSize");
  program.shape = locate("shape");
  program.color = locate("color");
  program.contentsRectangle = locate("contentsRectangle");
  program.contents = locate("contents");
  program.opacity = locate("opacity");
  return program;
}

Expected<std::unique_ptr<LayerRenderer>> LayerRenderer::create() {
  std::unique_ptr<LayerRenderer> renderer(new LayerRenderer);
  for (const auto& [program, source] : {std::pair(&renderer->shapeProgram_, kShapeFragmentShader),
                                        std::pair(&renderer->contentsProgram_, kContentsFragmentShader)}) {
    auto linked = link(source);
    if (!linked) return tl::unexpected(linked.error());
    *program = *linked;
  }
  return renderer;
}

LayerRenderer::~LayerRenderer() {
  for (const Program& program : {shapeProgram_, contentsProgram_}) {
    if (program.name) glDeleteProgram(program.name);
  }
}

void LayerRenderer::draw(const Layer& root, const Target& target) {
  time_ = target.time;
  glViewport(0, 0, target.width, target.height);
  const Color& background = target.background;
  const auto premultiplied = [&](double component) { return static_cast<GLfloat>(component * background.alpha); };
  glClearColor(premultiplied(background.red), premultiplied(background.green), premultiplied(background.blue),
               static_cast<GLfloat>(background.alpha));
  glClear(GL_COLOR_BUFFER_BIT);
  glEnable(GL_BLEND);
  glBlendFunc(GL_ONE, GL_ONE_MINUS_SRC_ALPHA);
  glEnableVertexAttribArray(kCornerAttribute);

  // The root lies where its bounds are, whatever its position.
  const AnimatedValues values = root.valuesAt(time_);
  const AffineTransform toOrigin = AffineTransform::makeTranslation(root.bounds().size.width / 2 - values.positionX,
                                                                    root.bounds().size.height / 2 - values.positionY);
  drawLayer(root, toOrigin.concatenating(clipTransform(target)), target.scale, 1);
  glDisable(GL_BLEND);
}

void LayerRenderer::drawLayer(const Layer& layer, const AffineTransform& superToClip, double superPixelsPerPoint,
                              double superOpacity) {
  const AnimatedValues values = layer.valuesAt(time_);
  const double opacity = superOpacity * values.opacity;
  if (layer.isHidden() || opacity <= 0) return;
  const AffineTransform transform = values.transform();
  const AffineTransform toClip =
      transform.concatenating(AffineTransform::makeTranslation(values.positionX, values.positionY))
          .concatenating(superToClip);
  const double growth = std::sqrt(std::abs(transform.a * transform.d - transform.b * transform.c));
  const Placed placed = {toClip, superPixelsPerPoint * growth, opacity, layer.bounds().size, values.cornerRadius};

  if (layer.backgroundColor().alpha > 0) drawShape(placed, layer.backgroundColor(), kFilled);
  if (const auto* drawable = dynamic_cast<const DrawableLayer*>(&layer)) drawContents(placed, *drawable);
  const AffineTransform centred =
      AffineTransform::makeTranslation(-layer.bounds().midX(), -layer.bounds().midY()).concatenating(toClip);
  for (const auto& sublayer : layer.sublayers()) drawLayer(*sublayer, centred, placed.pixelsPerPoint, opacity);
  if (values.borderWidth > 0) drawShape(placed, layer.borderColor(), values.borderWidth);
}

void LayerRenderer::drawShape(const Placed& placed, const Color& color, double thickness) {
  if (placed.pixelsPerPoint <= 0 || color.alpha <= 0) return;
  const double radius = std::min({placed.cornerRadius, placed.size.width / 2, placed.size.height / 2});
  glUseProgram(shapeProgram_.name);
  glUniform2f(shapeProgram_.halfSize, static_cast<GLfloat>(placed.size.width / 2),
              static_cast<GLfloat>(placed.size.height / 2));
  glUniform3f(shapeProgram_.shape, static_cast<GLfloat>(radius), static_cast<GLfloat>(thickness),
              static_cast<GLfloat>(placed.pixelsPerPoint));
  const double alpha = color.alpha * placed.opacity;
  glUniform4f(shapeProgram_.color, static_cast<GLfloat>(color.red * alpha), static_cast<GLfloat>(color.green * alpha),
              static_cast<GLfloat>(color.blue * alpha), static_cast<GLfloat>(alpha));
  // One pixel more on each side, for the soft edge.
  const double margin = 1 / placed.pixelsPerPoint;
  const Size size = {placed.size.width + 2 * margin, placed.size.height + 2 * margin};
  drawQuad(shapeProgram_, placed, {{-size.width / 2, -size.height / 2}, size});
}

void LayerRenderer::drawContents(const Placed& placed, const DrawableLayer& layer) {
  const auto frame = layer.drawable()->latestFrame();
  if (!frame || placed.size.width <= 0 || placed.size.height <= 0) return;

  // How much of the layer the frame covers; more than all of it where it is cut off.
  Size covered = {1, 1};
  const GLDrawable::PixelSize wanted = layer.drawable()->pixelSize();
  if (frame->width() != wanted.width || frame->height() != wanted.height) {
    covered = {frame->width() / (placed.size.width * layer.contentsScale()),
               frame->height() / (placed.size.height * layer.contentsScale())};
  }
  const Size shown = {std::min(covered.width, 1.0), std::min(covered.height, 1.0)};
  const Size part = {shown.width / covered.width, shown.height / covered.height};

  frame->waitUntilDrawn();
  glUseProgram(contentsProgram_.name);
  glActiveTexture(GL_TEXTURE0);
  glBindTexture(GL_TEXTURE_2D, frame->texture());
  glUniform1i(contentsProgram_.contents, 0);
  glUniform2f(contentsProgram_.opacity, static_cast<GLfloat>(placed.opacity), layer.isOpaque() ? 1 : 0);
  // The texture's bottom row comes first.
  setRectangle(contentsProgram_.contentsRectangle,
               {{0.5 - part.width / 2, 0.5 + part.height / 2}, {part.width, -part.height}});
  const Size size = {placed.size.width * shown.width, placed.size.height * shown.height};
  drawQuad(contentsProgram_, placed, {{-size.width / 2, -size.height / 2}, size});
  glBindTexture(GL_TEXTURE_2D, 0);
  frame->noteRead();
}

void LayerRenderer::drawQuad(const Program& program, const Placed& placed, const Rect& rectangle) {
  static constexpr std::array<GLfloat, 8> kCorners = {0, 0, 1, 0, 0, 1, 1, 1};
  setMatrix(program.toClip, placed.toClip);
  setRectangle(program.rectangle, rectangle);
  glVertexAttribPointer(kCornerAttribute, 2, GL_FLOAT, GL_FALSE, 0, kCorners.data());
  glDrawArrays(GL_TRIANGLE_STRIP, 0, 4);
}

}  // namespace tavrel
