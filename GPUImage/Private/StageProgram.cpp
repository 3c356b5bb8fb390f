#include "GPUImage/Private/StageProgram.h"

#include <fmt/format.h>

#include <atomic>
#include <map>
#include <string>

#include "GPUImage/TavrelGLProgram.h"
#include "GPUImage/TavrelGPUImageContext.h"
#include "Platform/Foundation/ConsoleLog.h"
#include "Platform/Foundation/FatalAssertion.h"
#include "Platform/Graphics/ShaderPreamble.h"

namespace tavrel {
namespace {

using Stage = StageProgram::Stage;

std::string vertexShaderFor(std::size_t placeCount) {
  std::string declarations = "attribute vec4 position; ";
  std::string body = "gl_Position = position; ";
  for (std::size_t i = 0; i < placeCount; ++i) {
    declarations += fmt::format("attribute vec4 corner{0}; varying highp vec2 tavrelPlace{0}; ", i);
    body += fmt::format("tavrelPlace{0} = corner{0}.xy; ", i);
  }
  return declarations + "void main() { " + body + "}";
}

std::string numbered(std::string_view text, std::size_t number) {
  std::string result;
  for (const char c : text) result += c == ShaderStage::kNumber ? fmt::format("_{}", number) : std::string(1, c);
  return result;
}

/// The inputs of a stage are the larger shader's.
std::string inputsOf(const Stage& stage, std::size_t number) {
  std::string text =
      fmt::format("\n#define inputImageTexture_{0} tavrelSource\n#define textureCoordinate_{0} tavrelPlace{1}\n",
                  number, stage.place);
  if (stage.shader->hasSecondInput) text += fmt::format("uniform highp sampler2D inputImageTexture2_{};\n", number);
  if (stage.shader->usesSecondPlace) {
    text += fmt::format("#define textureCoordinate2_{} tavrelPlace{}\n", number, stage.secondPlace);
  }
  return text;
}

std::string fragmentShaderFor(std::span<const Stage> stages, std::size_t placeCount) {
  std::string text;
  for (std::size_t i = 0; i < placeCount; ++i) text += fmt::format("varying highp vec2 tavrelPlace{}; ", i);
  text +=
      "uniform highp sampler2D tavrelSource; highp vec4 tavrelRounded(highp vec4 color) { return floor(clamp(color, "
      "0.0, 1.0) * "
      "255.0 + 0.5) / 255.0; } ";
  std::string body = "highp vec4 color = texture2D(tavrelSource, tavrelPlace0); ";
  for (std::size_t i = 0; i < stages.size(); ++i) {
    text += inputsOf(stages[i], i) + fmt::format("highp vec4 before_{0}; highp vec4 after_{0}; ", i) +
            numbered(stages[i].shader->text, i);
    const bool isLast = i + 1 == stages.size();
    body += fmt::format("before_{0} = color; main_{0}(); color = {1}after_{0}{2}; ", i, isLast ? "" : "tavrelRounded(",
                        isLast ? "" : ")");
  }
  return text + "void main() { " + body + "gl_FragColor = color; }";
}

}  // namespace

namespace {

using Key = std::vector<std::size_t>;

std::map<Key, std::unique_ptr<const StageProgram>>& madePrograms() {
  static auto* const made = new std::map<Key, std::unique_ptr<const StageProgram>>;
  return *made;
}

std::atomic<std::size_t> madeCount = 0;

Key keyOf(std::span<const Stage> stages, std::size_t placeCount) {
  Key key = {placeCount};
  for (const Stage& stage : stages) {
    key.insert(key.end(), {static_cast<std::size_t>(stage.shader->identifier), stage.place, stage.secondPlace});
  }
  return key;
}

}  // namespace

const StageProgram& StageProgram::of(std::span<const Stage> stages, std::size_t placeCount) {
  std::unique_ptr<const StageProgram>& program = madePrograms()[keyOf(stages, placeCount)];
  if (!program) {
    program.reset(new StageProgram(stages, placeCount));
    ++madeCount;
  }
  return *program;
}

bool StageProgram::isMade(std::span<const Stage> stages, std::size_t placeCount) {
  return madePrograms().contains(keyOf(stages, placeCount));
}

PrecompiledProgram StageProgram::described(std::span<const Stage> stages, std::size_t placeCount) {
  PrecompiledProgram program = {
      .vertexShader = shaderSource(GL_VERTEX_SHADER, vertexShaderFor(placeCount)),
      .fragmentShader = shaderSource(GL_FRAGMENT_SHADER, fragmentShaderFor(stages, placeCount)),
      .attributes = {{"position", 0}},
      .textures = {{.sampler = "tavrelSource"}}};
  for (std::size_t i = 0; i < placeCount; ++i) {
    program.attributes.emplace_back(fmt::format("corner{}", i), static_cast<GLuint>(i + 1));
  }
  for (std::size_t i = 0; i < stages.size(); ++i) {
    if (stages[i].shader->hasSecondInput) {
      program.textures.push_back({.sampler = fmt::format("inputImageTexture2_{}", i)});
    }
  }
  return program;
}

std::size_t StageProgram::count() { return madeCount; }

StageProgram::StageProgram(std::span<const Stage> stages, std::size_t placeCount)
    : program_(std::make_shared<TavrelGLProgram>(vertexShaderFor(placeCount), fragmentShaderFor(stages, placeCount))) {
  program_->addAttribute("position");
  for (std::size_t i = 0; i < placeCount; ++i) program_->addAttribute(fmt::format("corner{}", i));
  if (!program_->link()) {
    ConsoleLog::write("Fragment shader compile log: {}", program_->fragmentShaderLog());
    fatalAssertion("Filter shader link failed");
  }
  source_ = program_->uniformIndex("tavrelSource");
  for (std::size_t i = 0; i < stages.size(); ++i) {
    seconds_.push_back(program_->uniformIndex(fmt::format("inputImageTexture2_{}", i)));
    const auto locationsOf = [&](const std::vector<std::string>& names) {
      std::vector<GLint> locations;
      locations.reserve(names.size());
      for (const std::string& name : names) {
        locations.push_back(program_->uniformIndex(fmt::format("{}_{}", name, i)));
      }
      return locations;
    };
    tables_.push_back(locationsOf(stages[i].shader->tables));
    uniforms_.push_back(locationsOf(stages[i].shader->uniforms));
  }
}

}  // namespace tavrel
