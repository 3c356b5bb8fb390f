#include "Platform/Graphics/GLContext.h"

#include <EGL/egl.h>
#include <EGL/eglext.h>
#include <GLES2/gl2.h>
#include <gtest/gtest.h>

#include <array>
#include <cstdint>
#include <cstdlib>
#include <latch>
#include <thread>

#include "Platform/Graphics/GraphicsDisplay.h"

namespace tavrel {
namespace {

std::shared_ptr<GLContext> makeContext(std::shared_ptr<GLSharegroup> sharegroup = nullptr) {
  auto context = GLContext::create(std::move(sharegroup));
  if (!context) ADD_FAILURE() << context.error().description;
  return context.value_or(nullptr);
}

GLuint makeRedTexture() {
  static constexpr std::array<std::uint8_t, 4> kRed = {255, 0, 0, 255};
  GLuint texture = 0;
  glGenTextures(1, &texture);
  glBindTexture(GL_TEXTURE_2D, texture);
  glTexImage2D(GL_TEXTURE_2D, 0, GL_RGBA, 1, 1, 0, GL_RGBA, GL_UNSIGNED_BYTE, kRed.data());
  glFinish();
  return texture;
}

std::array<std::uint8_t, 4> pixelOf(GLuint texture) {
  GLuint framebuffer = 0;
  glGenFramebuffers(1, &framebuffer);
  glBindFramebuffer(GL_FRAMEBUFFER, framebuffer);
  glFramebufferTexture2D(GL_FRAMEBUFFER, GL_COLOR_ATTACHMENT0, GL_TEXTURE_2D, texture, 0);
  std::array<std::uint8_t, 4> pixel{};
  glReadPixels(0, 0, 1, 1, GL_RGBA, GL_UNSIGNED_BYTE, pixel.data());
  glDeleteFramebuffers(1, &framebuffer);
  return pixel;
}

TEST(GLContext, IsCurrentPerThread) {
  auto context = makeContext();
  EXPECT_EQ(GLContext::current(), nullptr);
  ASSERT_TRUE(context->makeCurrent());
  EXPECT_TRUE(context->makeCurrent());
  EXPECT_EQ(GLContext::current(), context.get());
  EXPECT_NE(glGetString(GL_VERSION), nullptr);
  std::thread([] { EXPECT_EQ(GLContext::current(), nullptr); }).join();
  GLContext::clearCurrent();
  EXPECT_EQ(GLContext::current(), nullptr);
  EXPECT_EQ(eglGetCurrentContext(), EGL_NO_CONTEXT);
}

TEST(GLContext, IsRefusedWhileCurrentOnAnotherThread) {
  auto context = makeContext();
  auto other = makeContext(context->sharegroup());
  std::latch held(1), release(1);
  std::thread holder([&] {
    EXPECT_TRUE(context->makeCurrent());
    held.count_down();
    release.wait();
    GLContext::clearCurrent();
  });
  held.wait();
  ASSERT_TRUE(other->makeCurrent());
  EXPECT_FALSE(context->makeCurrent());
  EXPECT_EQ(GLContext::current(), other.get()) << "a refusal must not take the thread's context away";
  EXPECT_NE(glGetString(GL_VERSION), nullptr);
  release.count_down();
  holder.join();
  EXPECT_TRUE(context->makeCurrent());
  GLContext::clearCurrent();
}

TEST(GLContext, IsReleasedByAThreadThatEndsOrSwitches) {
  auto first = makeContext();
  auto second = makeContext();
  std::thread([&] {
    EXPECT_TRUE(first->makeCurrent());
    EXPECT_TRUE(second->makeCurrent());
  }).join();
  EXPECT_TRUE(first->makeCurrent());
  EXPECT_TRUE(second->makeCurrent());
  GLContext::clearCurrent();
}

TEST(GLContext, SharesTexturesAcrossThreads) {
  auto context = makeContext();
  ASSERT_TRUE(context->makeCurrent());
  const GLuint texture = makeRedTexture();
  std::thread([&] {
    auto other = makeContext(context->sharegroup());
    ASSERT_TRUE(other->makeCurrent());
    EXPECT_EQ(pixelOf(texture), (std::array<std::uint8_t, 4>{255, 0, 0, 255}));
  }).join();
  auto stranger = makeContext();
  ASSERT_TRUE(stranger->makeCurrent());
  EXPECT_EQ(glIsTexture(texture), GL_FALSE) << "another sharegroup sees nothing";
  GLContext::clearCurrent();
}

TEST(GLContext, LeavesTheThreadTheAPIThatItHadChosen) {
  std::thread([] {
    ASSERT_EQ(eglBindAPI(EGL_OPENGL_API), EGL_TRUE);
    auto context = makeContext();
    ASSERT_TRUE(context->makeCurrent());
    EXPECT_EQ(eglQueryAPI(), static_cast<EGLenum>(EGL_OPENGL_API));
    EXPECT_EQ(pixelOf(makeRedTexture())[0], 255);
    GLContext::clearCurrent();
    EXPECT_EQ(eglQueryAPI(), static_cast<EGLenum>(EGL_OPENGL_API));
  }).join();
}

TEST(GLContext, SharegroupOutlivesItsContexts) {
  auto context = makeContext();
  auto sharegroup = context->sharegroup();
  ASSERT_TRUE(context->makeCurrent());
  const GLuint texture = makeRedTexture();
  context.reset();
  EXPECT_EQ(eglGetCurrentContext(), EGL_NO_CONTEXT) << "a context that dies is released first";
  auto later = makeContext(sharegroup);
  ASSERT_NE(later, nullptr);
  ASSERT_TRUE(later->makeCurrent());
  EXPECT_EQ(pixelOf(texture)[0], 255);
  GLContext::clearCurrent();
}

TEST(GLContext, MayDieWhileCurrentElsewhere) {
  auto context = makeContext();
  std::latch current(1), died(1);
  std::thread holder([&] {
    EXPECT_TRUE(context->makeCurrent());
    current.count_down();
    died.wait();
    EXPECT_EQ(GLContext::current(), nullptr);
    auto next = makeContext();
    EXPECT_TRUE(next->makeCurrent());
    EXPECT_EQ(GLContext::current(), next.get());
    EXPECT_EQ(pixelOf(makeRedTexture())[0], 255);
  });
  current.wait();
  context.reset();
  died.count_down();
  holder.join();
}

TEST(GLContext, PresentsThroughItsHandlerOnly) {
  auto context = makeContext();
  ASSERT_TRUE(context->makeCurrent());
  EXPECT_FALSE(context->presentRenderbuffer());
  const GLContext* presented = nullptr;
  context->setPresentHandler([&](GLContext& shown) {
    presented = &shown;
    return true;
  });
  EXPECT_TRUE(context->presentRenderbuffer());
  EXPECT_EQ(presented, context.get());
  context->setPresentHandler({});
  EXPECT_FALSE(context->presentRenderbuffer());
  GLContext::clearCurrent();
}

TEST(GraphicsDisplay, HeadlessOneStartsByItself) {
  GraphicsDisplay& display = GraphicsDisplay::shared();
  ASSERT_FALSE(display.error()) << display.error()->description;
  EXPECT_TRUE(display.isHeadless());
  EXPECT_NE(display.description().find("EGL 1."), std::string::npos) << display.description();
  int another = 0;
  EXPECT_FALSE(GraphicsDisplay::adopt(&another)) << "one display for the whole process";
  EXPECT_EQ(&GraphicsDisplay::shared(), &display);
}

// Runs in a process of its own, where no display is in use yet.
[[noreturn]] void adoptAndReport(const char* wish) {
  if (wish != nullptr) setenv("TAVREL_DISPLAY", wish, 1);  // NOLINT(concurrency-mt-unsafe): before any thread
  EGLDisplay display = eglGetPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
  eglInitialize(display, nullptr, nullptr);
  const bool adopted = GraphicsDisplay::adopt(display);
  const bool used = GraphicsDisplay::shared().nativeDisplay() == display && !GraphicsDisplay::shared().isHeadless();
  const bool works = GLContext::create().has_value();
  std::_Exit((adopted ? 1 : 0) | (used ? 2 : 0) | (works ? 4 : 0));
}

TEST(GraphicsDisplayDeathTest, AdoptsTheWindowSystemsDisplayUnlessHeadlessIsDemanded) {
  EXPECT_EXIT(adoptAndReport(nullptr), testing::ExitedWithCode(1 | 2 | 4), "");
  EXPECT_EXIT(adoptAndReport("headless"), testing::ExitedWithCode(4), "");
}

// An application's own context, in a process of its own.
[[noreturn]] void adoptCurrentAndReport(bool hasContext) {
  EGLDisplay display = eglGetPlatformDisplay(EGL_PLATFORM_SURFACELESS_MESA, EGL_DEFAULT_DISPLAY, nullptr);
  eglInitialize(display, nullptr, nullptr);
  const EGLint version[] = {EGL_CONTEXT_CLIENT_VERSION, 2, EGL_NONE};
  eglBindAPI(EGL_OPENGL_ES_API);
  EGLContext context = eglCreateContext(display, EGL_NO_CONFIG_KHR, EGL_NO_CONTEXT, version);
  if (hasContext) eglMakeCurrent(display, EGL_NO_SURFACE, EGL_NO_SURFACE, context);
  const bool adopted = GraphicsDisplay::adoptCurrent();
  const bool shares = GraphicsDisplay::shared().nativeShareContext() == context;
  std::_Exit((adopted ? 1 : 0) | (shares ? 2 : 0));
}

TEST(GraphicsDisplayDeathTest, AdoptsWhatIsCurrent) {
  EXPECT_EXIT(adoptCurrentAndReport(true), testing::ExitedWithCode(1 | 2), "");
  EXPECT_EXIT(adoptCurrentAndReport(false), testing::ExitedWithCode(0), "");
}

}  // namespace
}  // namespace tavrel
