#include <gtest/gtest.h>

#include <fstream>

#include "Support/GraphTestSupport.h"

namespace tavrel {
namespace {

using test::ConsoleCapture;

class ProgramTest : public ::testing::Test {
 protected:
  static void onQueue(const std::function<void()>& block) {
    TavrelRunSynchronouslyOnVideoProcessingQueue([&] {
      TavrelGPUImageContext::useImageProcessingContext();
      block();
    });
  }
};

TEST_F(ProgramTest, AttributesGetIndicesInTheOrderOfTheirFirstAddition) {
  onQueue([] {
    TavrelGLProgram program(kTavrelGPUImageVertexShaderString, kTavrelGPUImagePassthroughFragmentShaderString);
    program.addAttribute("position");
    program.addAttribute("position");
    program.addAttribute("inputTextureCoordinate");
    EXPECT_EQ(program.attributeIndex("position"), 0U);
    EXPECT_EQ(program.attributeIndex("inputTextureCoordinate"), 1U);
    EXPECT_EQ(program.attributeIndex("color"), 0xFFFFFFFFU);

    EXPECT_FALSE(program.initialized());
    EXPECT_NE(program.vertShader(), 0U);
    ASSERT_TRUE(program.link());
    EXPECT_TRUE(program.initialized());
    EXPECT_EQ(program.vertShader(), 0U);
    EXPECT_EQ(program.fragShader(), 0U);
    EXPECT_EQ(glGetAttribLocation(program.program(), "inputTextureCoordinate"), 1);
    EXPECT_GE(program.uniformIndex("inputImageTexture"), 0);
    EXPECT_EQ(program.uniformIndex("strength"), -1);
  });
}

TEST_F(ProgramTest, AShaderThatDoesNotCompileIsToldAndFailsTheLink) {
  onQueue([] {
    const ConsoleCapture console;
    TavrelGLProgram program(kTavrelGPUImageVertexShaderString, "void main() { gl_FragColor = nonsense; }");
    EXPECT_TRUE(console.contains("Failed to compile fragment shader"));
    EXPECT_FALSE(console.contains("Failed to compile vertex shader"));
    EXPECT_NE(program.fragmentShaderLog().find("nonsense"), std::string::npos);
    EXPECT_EQ(program.vertexShaderLog(), "");
    EXPECT_FALSE(program.link());
    EXPECT_FALSE(program.initialized());
    EXPECT_NE(program.fragShader(), 0U);
  });
}

TEST_F(ProgramTest, DirectivesThatMustComeFirstDo) {
  onQueue([] {
    const std::string body = "varying lowp vec2 textureCoordinate; void main() { gl_FragColor = vec4(1.0); }";
    const std::string vertexShader =
        "attribute vec4 position; varying lowp vec2 textureCoordinate; void main() { gl_Position = position; "
        "textureCoordinate = position.xy; }";
    for (const std::string first : {"", "#version 100\n", "// One.\n#version 100\n#extension all : disable\n"}) {
      TavrelGLProgram program("#version 100\n" + vertexShader, first + body);
      EXPECT_TRUE(program.link()) << first << program.fragmentShaderLog() << program.vertexShaderLog();
    }
  });
}

TEST_F(ProgramTest, AMissingSourceOfEitherShaderIsToldWithTheSameText) {
  onQueue([] {
    const ConsoleCapture console;
    const TavrelGLProgram program(kTavrelGPUImageVertexShaderString, std::filesystem::path("no such shader"));
    EXPECT_EQ(console.messages(),
              (std::vector<std::string>{"Failed to load vertex shader", "Failed to compile fragment shader"}));
  });
}

TEST_F(ProgramTest, SourcesAreReadFromFilesOfTheirOwnExtension) {
  for (const std::string name : {"plain", "with.a.dot"}) {
    const auto base =
        std::filesystem::temp_directory_path() / ("tavrel-program-" + std::to_string(getpid()) + "-" + name);
    const std::filesystem::path vertex = base.string() + ".vsh";
    const std::filesystem::path fragment = base.string() + ".fsh";
    std::ofstream(vertex) << kTavrelGPUImageVertexShaderString;
    std::ofstream(fragment) << kTavrelGPUImagePassthroughFragmentShaderString;
    onQueue([&] {
      TavrelGLProgram program(base, base);
      EXPECT_TRUE(program.link()) << name;
      program.validate();
      EXPECT_EQ(program.vertexShaderLog(), "");
      EXPECT_TRUE(TavrelGLProgram(vertex, fragment).link()) << name;
    });
    std::filesystem::remove(vertex);
    std::filesystem::remove(fragment);
  }
}

}  // namespace
}  // namespace tavrel
