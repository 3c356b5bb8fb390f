#include "GPUImage/Filters/Private/FilterFusion.h"

#include <utility>

#include "GPUImage/Filters/Private/InputScaling.h"
#include "GPUImage/Filters/TavrelGPUImageAlphaBlendFilter.h"
#include "GPUImage/Filters/TavrelGPUImageFilter.h"
#include "GPUImage/Filters/TavrelGPUImageTwoInputFilter.h"
#include "GPUImage/Private/FramebufferContents.h"
#include "GPUImage/TavrelGLProgram.h"
#include "GPUImage/TavrelGPUImageContext.h"

namespace tavrel {

void FilterFusion::setShaders(std::string_view vertexShader, std::string_view fragmentShader) {
  keepsVertices_ = vertexShader == kTavrelGPUImageVertexShaderString ||
                   vertexShader == kTavrelGPUImageTwoInputTextureVertexShaderString;
  fragmentShader_ = fragmentShader;
  textForStages_.clear();
  isAnalysed_ = false;
}

void FilterFusion::setTextForStages(std::string_view fragmentShader) {
  textForStages_ = fragmentShader;
  isAnalysed_ = false;
}

void FilterFusion::setTable(std::string_view name, std::shared_ptr<TavrelGPUImageFramebuffer> texture) {
  tables_.insert_or_assign(std::string(name), std::move(texture));
  isAnalysed_ = false;
}

void FilterFusion::setUniform(GLint location, UniformSetter setter) {
  // Drawings that are pending keep the values of their time.
  auto changed = std::make_shared<UniformSetters>(*uniforms_);
  (*changed)[location] = std::move(setter);
  uniforms_ = std::move(changed);
  foreignUniforms_.erase(location);
}

bool FilterFusion::findStage(const TavrelGPUImageFilter& self) {
  if (std::exchange(isAnalysed_, true)) return stage_ != nullptr;
  stage_ = ShaderStage::of(textForStages_.empty() ? fragmentShader_ : textForStages_);
  copies_ = fragmentShader_ == kTavrelGPUImagePassthroughFragmentShaderString;
  laysOver_ = fragmentShader_ == kTavrelGPUImageAlphaBlendFragmentShaderString;
  if (!stage_) return false;
  auto tables = std::make_shared<std::vector<std::shared_ptr<TavrelGPUImageFramebuffer>>>();
  for (const std::string& name : stage_->tables) {
    const auto known = tables_.find(name);
    if (known == tables_.end()) {
      stage_ = nullptr;
      return false;
    }
    tables->push_back(known->second);
  }
  stageTables_ = std::move(tables);
  auto locations = std::make_shared<std::vector<GLint>>();
  const auto program = self.program();
  for (const std::string& name : stage_->uniforms) locations->push_back(program->uniformIndex(name));
  locations_ = std::move(locations);
  return true;
}

bool FilterFusion::knows(const TavrelGPUImageFilter& self) const { return type_ && typeid(self) == *type_; }

bool FilterFusion::accepts(const TavrelGPUImageFilter& self) {
  // Programs of several stages round between them as framebuffers of 8 bits do.
  return PendingDrawing::isOn() && !TavrelGPUImageContext::worksDeep() && knows(self) && foreignUniforms_.empty() &&
         findStage(self) && self.outputTextureOptions() == TavrelGPUTextureOptions{};
}

std::optional<PendingDrawing> FilterFusion::drawingOf(const TavrelGPUImageFilter& self,
                                                      const TavrelGPUImageFramebufferLease& input,
                                                      const GLfloat* corners, const SecondInput& second) {
  if (!accepts(self) || !input || input.get()->textureOptions().isDeep()) return std::nullopt;
  TavrelGPUImageFramebuffer& framebuffer = *input.get();
  const Size size = self.sizeOfFBO();
  const AffineTransform map = PendingDrawing::mapOf(corners);
  if (!PendingDrawing::meetsPixels(map, size, framebuffer.size())) return std::nullopt;
  PendingDrawing::Stage stage = {
      .shader = stage_, .uniforms = uniforms_, .locations = locations_, .place = map, .tables = stageTables_};
  if (stage_->hasSecondInput || stage_->usesSecondPlace) {
    if (!second.framebuffer || !*second.framebuffer) return std::nullopt;
    const TavrelGPUImageFramebuffer& other = *second.framebuffer->get();
    stage.secondPlace = PendingDrawing::mapOf(second.corners);
    const bool isWhole = PendingDrawing::meetsPixels(stage.secondPlace, size, other.size());
    if (second.isScaled && !isWhole) return std::nullopt;
    stage.secondMeetsPixels = second.isScaled && isWhole;
    stage.second = TavrelGPUImageFramebufferLease(second.framebuffer->get());
    // Where a picture of the same size is transparent, blending changes nothing.
    if (laysOver_ && isWhole && stage.secondPlace.isIdentity()) {
      stage.area = FramebufferContents::visibleArea(other);
    }
  }

  std::optional<PendingDrawing> drawing;
  if (!second.keepsFirst) drawing = FramebufferContents::take(framebuffer);
  if (drawing && ((stage_->readsAround && !drawing->isPlain()) || !drawing->hasRoomFor(*stage_))) {
    FramebufferContents::defer(framebuffer, std::move(*drawing));
    drawing.reset();
  }
  if (!drawing) {
    FramebufferContents::draw(framebuffer);
    drawing.emplace(TavrelGPUImageFramebufferLease(input.get()));
  }
  drawing->turn(map, size);
  if (!copies_) drawing->add(std::move(stage));
  return drawing;
}

}  // namespace tavrel
