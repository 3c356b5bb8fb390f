# Every library the project stands on. Public ones appear in installed headers; the others stay behind Platform/.
# They are known to a project that this one is a part of, too.
set(CMAKE_FIND_PACKAGE_TARGETS_GLOBAL ON)
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(fmt REQUIRED)
find_package(tl-expected REQUIRED)
find_package(nlohmann_json REQUIRED)

pkg_check_modules(EGL REQUIRED IMPORTED_TARGET egl)
pkg_check_modules(GLESV2 REQUIRED IMPORTED_TARGET GLOBAL glesv2)
pkg_check_modules(GBM REQUIRED IMPORTED_TARGET gbm)
# All of FFmpeg, and what of it is loaded with the library (Platform/Media/FFmpegFunctions.h).
pkg_check_modules(FFMPEG REQUIRED IMPORTED_TARGET GLOBAL libavfilter libavformat libavcodec libavutil libswresample libswscale)
pkg_check_modules(FFMPEG_BASE REQUIRED IMPORTED_TARGET libavutil libswresample libswscale)
pkg_check_modules(PNG REQUIRED IMPORTED_TARGET libpng)
pkg_check_modules(JPEG REQUIRED IMPORTED_TARGET libturbojpeg)
pkg_check_modules(LCMS REQUIRED IMPORTED_TARGET lcms2)
pkg_check_modules(PIXMAN REQUIRED pixman-1)
find_package(GIF REQUIRED)
find_package(ZLIB REQUIRED)
find_library(YUV_LIBRARY yuv REQUIRED)

set(TAVREL_PUBLIC_LIBRARIES fmt::fmt tl::expected PkgConfig::GLESV2 Threads::Threads)
set(TAVREL_PRIVATE_LIBRARIES
  PkgConfig::EGL PkgConfig::GBM PkgConfig::FFMPEG_BASE PkgConfig::PNG PkgConfig::JPEG PkgConfig::LCMS GIF::GIF
  ZLIB::ZLIB ${YUV_LIBRARY} ${PIXMAN_LINK_LIBRARIES} nlohmann_json::nlohmann_json)
# A folder of headers that only these look into.
set_source_files_properties(
  ${PROJECT_SOURCE_DIR}/Platform/Imaging/BitmapContext.cpp
  ${PROJECT_SOURCE_DIR}/Platform/Imaging/Private/PixelConversion.cpp
  ${PROJECT_SOURCE_DIR}/Platform/Media/Private/Composing/LayerDrawing.cpp
  PROPERTIES INCLUDE_DIRECTORIES "${PIXMAN_INCLUDE_DIRS}")
