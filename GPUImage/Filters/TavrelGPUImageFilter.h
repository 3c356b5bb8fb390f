#pragma once

#include <GLES2/gl2.h>

#include <array>
#include <concepts>
#include <filesystem>
#include <functional>
#include <initializer_list>
#include <memory>
#include <string_view>

#include "GPUImage/TavrelGPUImageOutput.h"
#include "GPUImage/TavrelGPUImageRotationMode.h"
#include "Platform/Foundation/Geometry.h"

namespace tavrel {

class TavrelGLProgram;

/// Draws the input texture's coordinates through unchanged.
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
/// Column by column, as GL takes them.
using TavrelGPUMatrix3x3 = std::array<GLfloat, 9>;
using TavrelGPUMatrix4x4 = std::array<GLfloat, 16>;

/// A node that draws each input frame once through a vertex and a fragment shader into a framebuffer from the cache and
/// passes the result on. With the shaders left out it copies its input.
///
/// A filter of one's own derives from this class, gives the constructor a fragment shader that reads
/// `inputImageTexture` at `textureCoordinate`, and sets uniforms by name. Uniform values belong to the filter, also
/// where several filters share one program. Setting one does not wait for the frame under way.
class TAVREL_API TavrelGPUImageFilter : public TavrelGPUImageOutput, public TavrelGPUImageInput {
 public:
  /// Copies its input.
  TavrelGPUImageFilter();
  explicit TavrelGPUImageFilter(std::string_view fragmentShaderString);
  /// `attributes` are those of the vertex shader, the first two always these. Shaders that do not compile and link stop
  /// the program, with GL's logs on the console.
  TavrelGPUImageFilter(std::string_view vertexShaderString, std::string_view fragmentShaderString,
                       std::initializer_list<std::string_view> attributes = {"position", "inputTextureCoordinate"});
  /// The fragment shader from a file with extension "fsh"; see `TavrelGLProgram` for where it is looked for.
  template <std::same_as<std::filesystem::path> Path>
  explicit TavrelGPUImageFilter(const Path& fragmentShaderFile)
      : TavrelGPUImageFilter(std::string_view(readFragmentShader(fragmentShaderFile))) {}
  ~TavrelGPUImageFilter() override;

  /// Texture coordinates (s, t) of the four corners bottom-left, bottom-right, top-left, top-right; nullptr for a value
  /// that is no rotation mode.
  static const GLfloat* textureCoordinatesForRotation(TavrelGPUImageRotationMode rotationMode);
  /// The same corners' positions.
  static const GLfloat* fullFrameVertices();

  void useNextFrameForImageCapture() override;
  /// Waits up to 3 seconds for the frame asked for by `useNextFrameForImageCapture`. None when none came, and when that
  /// frame was taken already: one request, one image. Not on the video-processing queue while it is still to come.
  std::shared_ptr<Image> newCGImageFromCurrentlyProcessedOutput() override;

  /// Called after the input size changed, with the size of the output.
  virtual void setupFilterForSize(Size) {}
  Size sizeOfFBO() const;
  Size outputFrameSize() const;
  virtual Size rotatedSize(Size sizeToRotate, Index forIndex) const;
  /// The size of the output for frames of `inputSize`, when no size is forced.
  virtual Size outputSizeFor(Size inputSize) const { return rotatedSize(inputSize, 0); }
  /// A point with coordinates in 0…1 in the turned picture.
  static Point rotatedPoint(Point pointToRotate, TavrelGPUImageRotationMode forRotation);

  /// Zero ends it.
  void forceProcessingAtSize(Size frameSize) override;
  void forceProcessingAtSizeRespectingAspectRatio(Size frameSize) override;
  /// The size that is forced; zero for none.
  Size forcedSize() const { return overrideInputSize() ? forcedMaximumSize() : Size{}; }
  void setBackgroundColor(GLfloat red, GLfloat green, GLfloat blue, GLfloat alpha);

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

  /// Runs `block`, which sets the uniform at `uniform`, and keeps it in place of an earlier one for that location, to
  /// be run again before every draw.
  virtual void setAndExecuteUniformStateCallbackAtIndex(GLint uniform,
                                                        const std::shared_ptr<TavrelGLProgram>& shaderProgram,
                                                        std::function<void()> uniformStateBlock);
  virtual void setUniformsForProgramAtIndex(std::size_t programIndex);

  /// While set, frames are taken and dropped.
  bool preventRendering() const;
  void setPreventRendering(bool newValue);
  bool currentlyReceivingMonochromeInput() const;
  /// How the connection at the first slot has the input turned.
  TavrelGPUImageRotationMode inputRotation() const;
  std::shared_ptr<TavrelGLProgram> program() const;

  void newFrameReadyAtTime(MediaTime frameTime, Index atIndex) override;
  Index nextAvailableTextureIndex() const override { return 0; }
  void setInputFramebuffer(std::shared_ptr<TavrelGPUImageFramebuffer> newInputFramebuffer, Index atIndex) override;
  void setInputSize(Size newSize, Index atIndex) override;
  void setInputRotation(TavrelGPUImageRotationMode newInputRotation, Index atIndex) override;
  Size maximumOutputSize() const override { return {}; }
  /// Passed on to the targets once in the filter's lifetime.
  void endProcessing() override;
  bool shouldIgnoreUpdatesToThisTarget() const override {
    return TavrelGPUImageOutput::shouldIgnoreUpdatesToThisTarget();
  }
  bool enabled() const override { return TavrelGPUImageOutput::enabled(); }
  bool wantsMonochromeInput() const override { return false; }
  void setCurrentlyReceivingMonochromeInput(bool newValue) override;

 protected:
  struct Implementation;

  /// Draws the inputs into a framebuffer from the cache, the new output. Drops the inputs' locks on every way out.
  virtual void renderToTextureWithVertices(const GLfloat* vertices, const GLfloat* textureCoordinates);
  /// The draw of `renderToTextureWithVertices`; the inputs stay locked.
  void drawInputs(const GLfloat* vertices, const GLfloat* textureCoordinates);
  /// Binds the inputs' textures and sets their samplers and coordinates. A filter with more inputs extends it: unit 2
  /// is the first's.
  virtual void bindInputs(const GLfloat* textureCoordinates);
  /// Ends the locks on the inputs.
  virtual void unlockInputs();
  /// Hands the output to the targets, after the completion block and whoever waits for an image.
  virtual void informTargetsAboutNewFrameAtTime(MediaTime frameTime);
  /// The same, where targets are to be told otherwise than usual.
  void passOn(const HandOver& frame);
  bool keepsOutput() const override;
  /// The size to work at for an input of this size: turned as the connection asks, fitted into a forced size.
  virtual Size workingSize(Size inputSize) const;
  /// `size` fitted into `forcedMaximumSize`, or the current input size when none is forced.
  Size inputSizeUnderOverride(Size size) const;
  /// A framebuffer of the output's size from the cache, locked, to be drawn into now.
  std::shared_ptr<TavrelGPUImageFramebuffer> fetchFramebuffer();
  /// Draws by the program of these sources from now on.
  void useFilterProgram(std::string_view vertexShaderString, std::string_view fragmentShaderString);
  /// The location of one of the program's uniforms. Any thread.
  GLint uniformIndex(std::string_view name) const;

  /// For the library's own filters.
  Implementation& filter() const { return *implementation_; }

 private:
  static std::string readFragmentShader(const std::filesystem::path& file);
  using UniformSetter = std::function<void(GLint location)>;
  void setUniform(GLint uniform, const std::shared_ptr<TavrelGLProgram>& program, UniformSetter setter);
  void setUniform(std::string_view name, UniformSetter setter);
  void runOnVideoProcessingQueue(std::function<void()> work);

  const std::unique_ptr<Implementation> implementation_;
};

}  // namespace tavrel
