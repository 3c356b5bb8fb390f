# What a build can do without. OFF leaves out the code, the library that it stands on, and the tests of both.
option(TAVREL_WITH_PIPEWIRE "Cameras and microphones of PipeWire" ON)
option(TAVREL_WITH_V4L2 "Cameras as the kernel's video nodes" ON)
option(TAVREL_WITH_WEBP "WebP pictures and animations" ON)
option(TAVREL_WITH_AVIF "AVIF pictures and animations" ON)
option(TAVREL_WITH_SDL "Windows; without them views are composed off-screen only" ON)

# Sources, tests and examples of what is left out, as regular expressions.
set(tavrel_left_out "")
if(TAVREL_WITH_PIPEWIRE)
  pkg_check_modules(PIPEWIRE REQUIRED IMPORTED_TARGET libpipewire-0.3)
  list(APPEND TAVREL_PRIVATE_LIBRARIES PkgConfig::PIPEWIRE)
else()
  message(STATUS "PipeWire and its tests are left out: TAVREL_WITH_PIPEWIRE is OFF")
  list(APPEND tavrel_left_out /Capture/PipeWire/ /PeerRecordingTest)
endif()
if(NOT TAVREL_WITH_V4L2)
  message(STATUS "V4L2 and its tests are left out: TAVREL_WITH_V4L2 is OFF")
  list(APPEND tavrel_left_out /Capture/V4L2/ /Support/CaptureFakeVideo)
endif()
if(NOT TAVREL_WITH_PIPEWIRE AND NOT TAVREL_WITH_V4L2)
  list(APPEND tavrel_left_out /Capture/Private/FrameConversion /Capture/Private/UsualSizes)
endif()
if(TAVREL_WITH_SDL)
  pkg_check_modules(SDL2 REQUIRED IMPORTED_TARGET sdl2)
  list(APPEND TAVREL_PRIVATE_LIBRARIES PkgConfig::SDL2)
  list(APPEND tavrel_left_out /UI/Private/WithoutWindows /UI/WithoutWindowsTest)
else()
  message(STATUS "Windows, their tests and their example are left out: TAVREL_WITH_SDL is OFF")
  list(APPEND tavrel_left_out
    /UI/Private/NativeWindow /UI/Private/WindowSystem /UI/Private/GuardedWindowCommands
    /Tests/Platform/UIWindow/ /UI/WindowRefusalTest /PreviewCommandTest InSDL)
endif()

if(TAVREL_WITH_WEBP)
  pkg_check_modules(WEBP REQUIRED IMPORTED_TARGET libwebp libwebpdemux libwebpmux)
  list(APPEND TAVREL_PRIVATE_LIBRARIES PkgConfig::WEBP)
else()
  message(STATUS "WebP and its tests are left out: TAVREL_WITH_WEBP is OFF")
  list(APPEND tavrel_left_out /Imaging/Private/Webp /Imaging/WebpSourceTest)
endif()
if(TAVREL_WITH_AVIF)
  pkg_check_modules(AVIF REQUIRED libavif)
  list(APPEND TAVREL_PRIVATE_LIBRARIES ${AVIF_LINK_LIBRARIES})
else()
  message(STATUS "AVIF and its tests are left out: TAVREL_WITH_AVIF is OFF")
  list(APPEND tavrel_left_out /Imaging/Private/Avif /Imaging/AvifSourceTest)
endif()

set_source_files_properties(Platform/Imaging/ImageSource.cpp Platform/Imaging/ImageDestination.cpp
  PROPERTIES COMPILE_DEFINITIONS
  "TAVREL_WITH_WEBP=$<BOOL:${TAVREL_WITH_WEBP}>;TAVREL_WITH_AVIF=$<BOOL:${TAVREL_WITH_AVIF}>")
set_source_files_properties(Platform/Capture/Private/CaptureBackends.cpp PROPERTIES COMPILE_DEFINITIONS
  "TAVREL_WITH_PIPEWIRE=$<BOOL:${TAVREL_WITH_PIPEWIRE}>;TAVREL_WITH_V4L2=$<BOOL:${TAVREL_WITH_V4L2}>")

# Takes what is left out from the list of sources named `variable`.
function(tavrel_leave_out variable)
  foreach(pattern IN LISTS tavrel_left_out)
    list(FILTER ${variable} EXCLUDE REGEX "${pattern}")
  endforeach()
  set(${variable} "${${variable}}" PARENT_SCOPE)
endfunction()
