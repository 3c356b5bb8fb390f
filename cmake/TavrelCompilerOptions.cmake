# Warnings, sanitizers and the compiler cache, for every target of this project. The presets make warnings errors.
find_program(TAVREL_CCACHE ccache)
if(TAVREL_CCACHE AND PROJECT_IS_TOP_LEVEL AND NOT DEFINED CMAKE_CXX_COMPILER_LAUNCHER)
  set(CMAKE_CXX_COMPILER_LAUNCHER ${TAVREL_CCACHE})
endif()

add_library(tavrel_compiler_options INTERFACE)
target_compile_options(tavrel_compiler_options INTERFACE
  -Wall -Wextra -Wpedantic -Wshadow -Wnon-virtual-dtor -Woverloaded-virtual -Wcast-qual -Wformat=2
  -Wimplicit-fallthrough)
if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
  # Macros of PipeWire and of FFmpeg are such.
  target_compile_options(tavrel_compiler_options INTERFACE -Wno-gnu-statement-expression -Wno-c99-extensions)
endif()

if(TAVREL_SANITIZE)
  add_compile_options(-fsanitize=${TAVREL_SANITIZE} -fno-omit-frame-pointer)
  add_link_options(-fsanitize=${TAVREL_SANITIZE})
  if(CMAKE_CXX_COMPILER_ID STREQUAL "GNU")
    # GCC says itself that this warning is wrong now and then in instrumented code; in std::regex it is.
    target_compile_options(tavrel_compiler_options INTERFACE -Wno-maybe-uninitialized)
  endif()
  if(CMAKE_CXX_COMPILER_ID MATCHES "Clang")
    # It calls a library for atomics of sixteen bytes.
    link_libraries(atomic)
  endif()
  if(TAVREL_SANITIZE MATCHES "undefined")
    add_compile_options(-fno-sanitize-recover=undefined)
  endif()
  if(TAVREL_SANITIZE MATCHES "thread")
    # The sanitizer does not follow fences. asio's are needless beside the mutex of its queue.
    add_compile_definitions(ASIO_DISABLE_FENCED_BLOCK)
  endif()
endif()
