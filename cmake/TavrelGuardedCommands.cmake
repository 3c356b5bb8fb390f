# The GL commands that may not overlap with another context's in Mesa's software renderer (Platform/Graphics/
# GLDriverLock.h): calls from our own code are led to Platform/Graphics/Private/GuardedCommands.cpp and
# Platform/UI/Private/GuardedWindowCommands.cpp.
set(TAVREL_GUARDED_COMMANDS
  glClear glDrawArrays glFlush glFinish glReadPixels glTexImage2D glTexSubImage2D glCopyTexSubImage2D glGenerateMipmap
  eglCreateContext eglDestroyContext eglMakeCurrent
  glGenTextures glGenFramebuffers glGenRenderbuffers glCreateProgram glCreateShader glBindFramebuffer glBindRenderbuffer
  glDeleteTextures glDeleteFramebuffers glDeleteRenderbuffers glDeleteProgram glDeleteShader)
if(TAVREL_WITH_SDL)
  list(APPEND TAVREL_GUARDED_COMMANDS SDL_GL_MakeCurrent SDL_GL_SwapWindow)
endif()
list(TRANSFORM TAVREL_GUARDED_COMMANDS PREPEND "LINKER:--wrap=" OUTPUT_VARIABLE TAVREL_GUARD_LINK_OPTIONS)

# A sanitizer names the guarded call in its reports, where suppressions look for it, only when the call is no jump.
if(TAVREL_SANITIZE)
  set_source_files_properties(${PROJECT_SOURCE_DIR}/Platform/Graphics/Private/GuardedCommands.cpp
    PROPERTIES COMPILE_OPTIONS -fno-optimize-sibling-calls)
endif()
