#include <algorithm>
#include <array>
#include <functional>
#include <string>
#include <utility>
#include <vector>

#include "GPUImage/Filters/Private/FilterImplementation.h"
#include "GPUImage/TavrelGLProgram.h"
#include "Platform/Foundation/Finite.h"

namespace tavrel {
namespace {

// One setter for each kind of uniform, used by both the forms by name and by location.
UniformSetter integerSetter(GLint value) {
  return [value](GLint location) { glUniform1i(location, value); };
}

/// Nothing when one of the values is not finite.
template <typename Values, typename Upload>
UniformSetter setterOf(Values values, Upload upload) {
  if (!std::ranges::all_of(values, isFinite<GLfloat>)) return nullptr;
  return [values = std::move(values), upload](GLint location) { upload(location, values.data(), values.size()); };
}

UniformSetter floatSetter(GLfloat value) {
  return setterOf(std::array{value}, [](GLint at, const GLfloat* values, auto) { glUniform1fv(at, 1, values); });
}

UniformSetter pairSetter(double first, double second) {
  return setterOf(std::array{static_cast<GLfloat>(first), static_cast<GLfloat>(second)},
                  [](GLint at, const GLfloat* values, auto) { glUniform2fv(at, 1, values); });
}

UniformSetter vec3Setter(TavrelGPUVector3 vector) {
  return setterOf(std::array{vector.one, vector.two, vector.three},
                  [](GLint at, const GLfloat* values, auto) { glUniform3fv(at, 1, values); });
}

UniformSetter vec4Setter(TavrelGPUVector4 vector) {
  return setterOf(std::array{vector.one, vector.two, vector.three, vector.four},
                  [](GLint at, const GLfloat* values, auto) { glUniform4fv(at, 1, values); });
}

}  // namespace

void TavrelGPUImageFilter::setBackgroundColor(GLfloat red, GLfloat green, GLfloat blue, GLfloat alpha) {
  if (!isFinite(red + green + blue + alpha)) return;
  onVideoProcessingQueue([&] {
    implementation_->backgroundColorRed = red;
    implementation_->backgroundColorGreen = green;
    implementation_->backgroundColorBlue = blue;
    implementation_->backgroundColorAlpha = alpha;
  });
}

void TavrelGPUImageFilter::setInteger(GLint newInteger, std::string_view forUniformName) {
  setUniform(forUniformName, integerSetter(newInteger));
}

void TavrelGPUImageFilter::setFloat(GLfloat newFloat, std::string_view forUniformName) {
  setUniform(forUniformName, floatSetter(newFloat));
}

void TavrelGPUImageFilter::setSize(Size newSize, std::string_view forUniformName) {
  setUniform(forUniformName, pairSetter(newSize.width, newSize.height));
}

void TavrelGPUImageFilter::setPoint(Point newPoint, std::string_view forUniformName) {
  setUniform(forUniformName, pairSetter(newPoint.x, newPoint.y));
}

void TavrelGPUImageFilter::setFloatVec3(TavrelGPUVector3 newVector, std::string_view forUniformName) {
  setUniform(forUniformName, vec3Setter(newVector));
}

void TavrelGPUImageFilter::setFloatVec4(TavrelGPUVector4 newVector, std::string_view forUniformName) {
  setUniform(forUniformName, vec4Setter(newVector));
}

void TavrelGPUImageFilter::setFloatVec4(TavrelGPUVector4 newVector, GLint forUniform) {
  setVec4(newVector, forUniform, nullptr);
}

void TavrelGPUImageFilter::setFloatArray(const GLfloat* array, GLsizei length, GLint forUniform) {
  setFloatArray(array, length, forUniform, nullptr);
}

void TavrelGPUImageFilter::setMatrix3f(const TavrelGPUMatrix3x3& matrix, GLint uniform,
                                       const std::shared_ptr<TavrelGLProgram>& program) {
  const auto upload = [](GLint at, const GLfloat* values, auto) { glUniformMatrix3fv(at, 1, GL_FALSE, values); };
  setUniform(uniform, program, setterOf(matrix, upload));
}

void TavrelGPUImageFilter::setMatrix4f(const TavrelGPUMatrix4x4& matrix, GLint uniform,
                                       const std::shared_ptr<TavrelGLProgram>& program) {
  const auto upload = [](GLint at, const GLfloat* values, auto) { glUniformMatrix4fv(at, 1, GL_FALSE, values); };
  setUniform(uniform, program, setterOf(matrix, upload));
}

void TavrelGPUImageFilter::setFloat(GLfloat floatValue, GLint uniform,
                                    const std::shared_ptr<TavrelGLProgram>& program) {
  setUniform(uniform, program, floatSetter(floatValue));
}

void TavrelGPUImageFilter::setPoint(Point pointValue, GLint uniform, const std::shared_ptr<TavrelGLProgram>& program) {
  setUniform(uniform, program, pairSetter(pointValue.x, pointValue.y));
}

void TavrelGPUImageFilter::setSize(Size sizeValue, GLint uniform, const std::shared_ptr<TavrelGLProgram>& program) {
  setUniform(uniform, program, pairSetter(sizeValue.width, sizeValue.height));
}

void TavrelGPUImageFilter::setVec3(TavrelGPUVector3 vectorValue, GLint uniform,
                                   const std::shared_ptr<TavrelGLProgram>& program) {
  setUniform(uniform, program, vec3Setter(vectorValue));
}

void TavrelGPUImageFilter::setVec4(TavrelGPUVector4 vectorValue, GLint uniform,
                                   const std::shared_ptr<TavrelGLProgram>& program) {
  setUniform(uniform, program, vec4Setter(vectorValue));
}

void TavrelGPUImageFilter::setFloatArray(const GLfloat* array, GLsizei length, GLint uniform,
                                         const std::shared_ptr<TavrelGLProgram>& program) {
  const auto upload = [](GLint at, const GLfloat* values, std::size_t count) {
    glUniform1fv(at, static_cast<GLsizei>(count), values);
  };
  setUniform(uniform, program, setterOf(std::vector<GLfloat>(array, array + length), upload));
}

void TavrelGPUImageFilter::setInteger(GLint intValue, GLint uniform, const std::shared_ptr<TavrelGLProgram>& program) {
  setUniform(uniform, program, integerSetter(intValue));
}

// Without a program it is the filter's own.
void TavrelGPUImageFilter::setUniform(GLint uniform, const std::shared_ptr<TavrelGLProgram>& program,
                                      UniformSetter setter) {
  if (!setter) return;
  runOnVideoProcessingQueue([this, uniform, program, setter = std::move(setter)] {
    const auto& used = program ? program : implementation_->filterProgram.program();
    TavrelGPUImageContext::setActiveShaderProgram(used);
    setAndExecuteUniformStateCallbackAtIndex(uniform, used, [uniform, setter] { setter(uniform); });
    if (used == implementation_->filterProgram.program()) implementation_->fusion.setUniform(uniform, setter);
  });
}

// The location is asked for on the queue too, where GL is.
void TavrelGPUImageFilter::setUniform(std::string_view name, UniformSetter setter) {
  if (!setter) return;
  runOnVideoProcessingQueue([this, name = std::string(name), setter = std::move(setter)] {
    setUniform(uniformIndex(name), nullptr, setter);
  });
}

void TavrelGPUImageFilter::runOnVideoProcessingQueue(std::function<void()> work) {
  std::shared_ptr<TavrelGPUImageOutput> self = weak_from_this().lock();
  if (self) {
    TavrelRunAsynchronouslyOnVideoProcessingQueue([self = std::move(self), work = std::move(work)] { work(); });
  } else {
    // A constructor's call: nobody else holds the filter yet, so nothing could keep it alive until later.
    TavrelRunSynchronouslyOnVideoProcessingQueue(work);
  }
}

void TavrelGPUImageFilter::setAndExecuteUniformStateCallbackAtIndex(GLint uniform,
                                                                    const std::shared_ptr<TavrelGLProgram>&,
                                                                    std::function<void()> uniformStateBlock) {
  onVideoProcessingQueue([&] {
    std::function<void()>& stored = implementation_->uniformStateRestorationBlocks[uniform];
    stored = std::move(uniformStateBlock);
    implementation_->fusion.noteForeignUniform(uniform);
    stored();
  });
}

void TavrelGPUImageFilter::setUniformsForProgramAtIndex(std::size_t) {
  for (const auto& [uniform, restore] : implementation_->uniformStateRestorationBlocks) restore();
}

}  // namespace tavrel
