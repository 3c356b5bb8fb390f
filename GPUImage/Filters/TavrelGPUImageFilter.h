#pragma once

#include <GLES2/gl2.h>

#include <array>
#include <concepts>
#include <cstddef>
#include <filesystem>
#include <functional>
#include <initializer_list>
#include <memory>
#include <string_view>
#include <vector>

#include "GPUImage/TavrelGPUImageOutput.h"
#include "GPUImage/TavrelGPUImageRotationMode.h"
#include "Platform/Foundation/Geometry.h"
#include "Platform/Foundation/Pimpl.h"

namespace tavrel {

class TavrelGLProgram;
struct PrecompiledProgram;

/// Passes position and texture coordinates through.
TAVREL_API extern const char* const kTavrelGPUImageVertexShaderString;
/// Copies the input.
TAVREL_API extern const char* const kTavrelGPUImagePassthroughFragmentShaderString;
/// Copies the input with red and blue exchanged.
TAVREL_API extern const char* const kTavrelGPUImageColorSwizzlingFragmentShaderString;

struct TavrelGPUVector3 {
  GLfloat one = 0, two = 0, three = 0;
};
struct TavrelGPUVector4 {
  GLfloat one = 0, two = 0, three = 0, four = 0;
};
/// In column-major order.
using TavrelGPUMatrix3x3 = std::array<GLfloat, 9>;
using TavrelGPUMatrix4x4 = std::array<GLfloat, 16>;

/// Draws each input frame with a vertex and a fragment shader into a framebuffer from the cache, and passes that on.
///
/// To write a filter, derive from this class, pass the constructor a fragment shader that samples `inputImageTexture`
/// at `textureCoordinate`, and set uniforms by name. Uniform values belong to the filter, even if several filters share
/// a program. Setting one does not wait for the frame in progress.
class TAVREL_API TavrelGPUImageFilter : public TavrelGPUImageOutput, public TavrelGPUImageInput {
 public:
  /// Copies its input.
  TavrelGPUImageFilter();
  explicit TavrelGPUImageFilter(std::string_view fragmentShaderString);
  /// `attributes` are the vertex shader's, beginning with these two. Shaders that do not compile and link stop the
  /// program, with GL's logs on the console.
  TavrelGPUImageFilter(std::string_view vertexShaderString, std::string_view fragmentShaderString,
                       std::initializer_list<std::string_view> attributes = {"position", "inputTextureCoordinate"});
  /// The fragment shader from a file with extension "fsh"; see `TavrelGLProgram` for the lookup.
  template <std::same_as<std::filesystem::path> Path>
  explicit TavrelGPUImageFilter(const Path& fragmentShaderFile)
      : TavrelGPUImageFilter(std::string_view(readFragmentShader(fragmentShaderFile))) {}
  ~TavrelGPUImageFilter() override;

  /// Texture coordinates (s, t) of the corners bottom-left, bottom-right, top-left, top-right; nullptr for an invalid
  /// mode.
  static const GLfloat* textureCoordinatesForRotation(TavrelGPUImageRotationMode rotationMode);
  /// Positions of the same corners.
  static const GLfloat* fullFrameVertices();

  void useNextFrameForImageCapture() override;
  /// Waits up to 3 s for the frame requested by `useNextFrameForImageCapture`. Each request gives one image; nullptr
  /// without a request or a frame. Do not call on the video-processing queue before the frame has come.
  std::shared_ptr<Image> newCGImageFromCurrentlyProcessedOutput() override;

  using Chain = std::vector<std::shared_ptr<TavrelGPUImageFilter>>;
  /// Compiles the programs with which these filters, connected one after the other, will draw frames of `frameSize`, so
  /// that the first frame need not wait for the driver's compiler, which takes up to a second for each. Call it before
  /// they are connected in this order; meanwhile frames may pass them in another. Filters of an application's class
  /// (see `allowFusion`) are left out. `sendPictures`, if any, sends the other inputs' pictures. If `areFramesComing`
  /// to other filters, the compiler works beside these, so that they need not wait either. Calls no block of an
  /// application. Returns when done; do not call it on the video-processing queue.
  static void prepareChain(const Chain& filters, Size frameSize, const std::function<void()>& sendPictures,
                           bool areFramesComing);
  /// Whether `prepareChain` has nothing to compile. Compiles nothing itself.
  static bool isChainPrepared(const Chain& filters, Size frameSize, const std::function<void()>& sendPictures);
  /// Number of programs of several filters that this process has compiled. Any thread.
  static std::size_t fusedProgramCount();

  /// Called with the output size after the input size has changed.
  virtual void setupFilterForSize(Size) {}
  Size sizeOfFBO() const;
  Size outputFrameSize() const;
  virtual Size rotatedSize(Size sizeToRotate, Index forIndex) const;
  /// The output size for frames of `inputSize` if no size is forced.
  virtual Size outputSizeFor(Size inputSize) const { return rotatedSize(inputSize, 0); }
  /// Rotates a point with coordinates in 0…1.
  static Point rotatedPoint(Point pointToRotate, TavrelGPUImageRotationMode forRotation);

  /// Zero ends forcing.
  void forceProcessingAtSize(Size frameSize) override;
  void forceProcessingAtSizeRespectingAspectRatio(Size frameSize) override;
  /// The forced size; zero if none.
  Size forcedSize() const { return overrideInputSize() ? forcedMaximumSize() : Size{}; }
  void setBackgroundColor(GLfloat red, GLfloat green, GLfloat blue, GLfloat alpha);

  // Values of uniforms; those that hold NaN or infinity are ignored.
  void setInteger(GLint newInteger, std::string_view forUniformName);
  void setFloat(GLfloat newFloat, std::string_view forUniformName);
  void setSize(Size newSize, std::string_view forUniformName);
  void setPoint(Point newPoint, std::string_view forUniformName);
  void setFloatVec3(TavrelGPUVector3 newVector, std::string_view forUniformName);
  void setFloatVec4(TavrelGPUVector4 newVector, std::string_view forUniformName);
  void setFloatVec4(TavrelGPUVector4 newVector, GLint forUniform);
  void setFloatArray(const GLfloat* array, GLsizei length, GLint forUniform);

  void setMatrix3f(const TavrelGPUMatrix3x3& matrix, GLint uniform, const std::shared_ptr<TavrelGLProgram>& program);
  void setMatrix4f(const TavrelGPUMatrix4x4& matrix, GLint uniform, const std::shared_ptr<TavrelGLProgram>& program);
  void setFloat(GLfloat floatValue, GLint uniform, const std::shared_ptr<TavrelGLProgram>& program);
  void setPoint(Point pointValue, GLint uniform, const std::shared_ptr<TavrelGLProgram>& program);
  void setSize(Size sizeValue, GLint uniform, const std::shared_ptr<TavrelGLProgram>& program);
  void setVec3(TavrelGPUVector3 vectorValue, GLint uniform, const std::shared_ptr<TavrelGLProgram>& program);
  void setVec4(TavrelGPUVector4 vectorValue, GLint uniform, const std::shared_ptr<TavrelGLProgram>& program);
  void setFloatArray(const GLfloat* array, GLsizei length, GLint uniform,
                     const std::shared_ptr<TavrelGLProgram>& program);
  void setInteger(GLint intValue, GLint uniform, const std::shared_ptr<TavrelGLProgram>& program);

  /// Runs `uniformStateBlock`, which sets the uniform, and again before every draw. Replaces an earlier block for that
  /// location.
  virtual void setAndExecuteUniformStateCallbackAtIndex(GLint uniform,
                                                        const std::shared_ptr<TavrelGLProgram>& shaderProgram,
                                                        std::function<void()> uniformStateBlock);
  virtual void setUniformsForProgramAtIndex(std::size_t programIndex);

  /// While true, frames are dropped.
  bool preventRendering() const;
  void setPreventRendering(bool newValue);
  bool currentlyReceivingMonochromeInput() const;
  /// The input rotation at the first slot.
  TavrelGPUImageRotationMode inputRotation() const;
  std::shared_ptr<TavrelGLProgram> program() const;

  void newFrameReadyAtTime(MediaTime frameTime, Index atIndex) override;
  void setInputFramebuffer(std::shared_ptr<TavrelGPUImageFramebuffer> newInputFramebuffer, Index atIndex) override;
  void setInputSize(Size newSize, Index atIndex) override;
  void setInputRotation(TavrelGPUImageRotationMode newInputRotation, Index atIndex) override;
  /// Forwarded to the targets, once in the filter's lifetime.
  void endProcessing() override;
  bool shouldIgnoreUpdatesToThisTarget() const override {
    return TavrelGPUImageOutput::shouldIgnoreUpdatesToThisTarget();
  }
  bool enabled() const override { return TavrelGPUImageOutput::enabled(); }
  void setCurrentlyReceivingMonochromeInput(bool newValue) override;

 protected:
  struct Implementation;

  /// Draws the inputs into a new output framebuffer from the cache. Always unlocks the inputs.
  virtual void renderToTextureWithVertices(const GLfloat* vertices, const GLfloat* textureCoordinates);
  /// Like `renderToTextureWithVertices`, but keeps the inputs locked.
  void drawInputs(const GLfloat* vertices, const GLfloat* textureCoordinates);
  /// Binds the inputs' textures, and sets their samplers and texture coordinates. The first input uses texture unit 2;
  /// override to add more.
  virtual void bindInputs(const GLfloat* textureCoordinates);
  virtual void unlockInputs();
  /// The size in pixels at which a quad with these corners is drawn.
  virtual Size drawnSize(const GLfloat* vertices) const;
  /// Before drawing, brings the inputs to about that size; see `TavrelGPUImageContext::scaling`.
  virtual void scaleInputs(const GLfloat* vertices, const GLfloat* textureCoordinates);
  /// Calls the completion block and serves image captures, then hands the output over to the targets.
  virtual void informTargetsAboutNewFrameAtTime(MediaTime frameTime);
  /// The same with other options.
  void passOn(const HandOver& frame);
  bool keepsOutput() const override;
  /// The working size for an input of this size: with the input rotation, fitted into a forced size.
  virtual Size workingSize(Size inputSize) const;
  /// `size` fitted into `forcedMaximumSize`, or the current input size if none is forced.
  Size inputSizeUnderOverride(Size size) const;
  /// A locked framebuffer of the output size from the cache, bound for drawing.
  std::shared_ptr<TavrelGPUImageFramebuffer> fetchFramebuffer();
  /// For the constructor of a class that overrides nothing that draws: allows drawing its frames together with other
  /// filters', in one pass.
  void allowFusion();
  /// Uses the program of these sources from now on.
  void useFilterProgram(std::string_view vertexShaderString, std::string_view fragmentShaderString);
  /// The location of a uniform of the program. Any thread.
  GLint uniformIndex(std::string_view name) const;

  /// Removes the inputs; the result's destruction puts them back.
  virtual std::shared_ptr<void> keepInputs();
  /// For the library's own filters.
  Implementation& filter() const { return *implementation_; }

 private:
  static void rehearse(const Chain& filters, Size frameSize, const std::function<void()>& sendPictures);
  static std::vector<PrecompiledProgram> unknownPrograms(const Chain& filters, Size frameSize,
                                                         const std::function<void()>& sendPictures);
  bool canRehearse() const;
  static std::string readFragmentShader(const std::filesystem::path& file);
  using UniformSetter = std::function<void(GLint location)>;
  void setUniform(GLint uniform, const std::shared_ptr<TavrelGLProgram>& program, UniformSetter setter);
  void setUniform(std::string_view name, UniformSetter setter);
  void runOnVideoProcessingQueue(std::function<void()> work);
  const Pimpl<Implementation> implementation_;
};

}  // namespace tavrel
