# Every library the project stands on. Public ones appear in installed headers; the others stay behind Platform/.
find_package(PkgConfig REQUIRED)
find_package(Threads REQUIRED)
find_package(fmt REQUIRED)
find_package(tl-expected REQUIRED)

pkg_check_modules(EGL REQUIRED IMPORTED_TARGET egl)
pkg_check_modules(GLESV2 REQUIRED IMPORTED_TARGET glesv2)
pkg_check_modules(SDL2 REQUIRED IMPORTED_TARGET sdl2)
pkg_check_modules(GBM REQUIRED IMPORTED_TARGET gbm)
pkg_check_modules(FFMPEG REQUIRED IMPORTED_TARGET libavformat libavcodec libavutil libswresample libswscale)
pkg_check_modules(PNG REQUIRED IMPORTED_TARGET libpng)
pkg_check_modules(JPEG REQUIRED IMPORTED_TARGET libturbojpeg)
pkg_check_modules(EXIF REQUIRED IMPORTED_TARGET libexif)
pkg_check_modules(PIPEWIRE REQUIRED IMPORTED_TARGET libpipewire-0.3)
find_package(GIF REQUIRED)
find_library(YUV_LIBRARY yuv REQUIRED)

set(TAVREL_PUBLIC_LIBRARIES fmt::fmt tl::expected PkgConfig::GLESV2 Threads::Threads)
set(TAVREL_PRIVATE_LIBRARIES
  PkgConfig::EGL PkgConfig::SDL2 PkgConfig::GBM PkgConfig::FFMPEG PkgConfig::PNG PkgConfig::JPEG PkgConfig::EXIF
  PkgConfig::PIPEWIRE GIF::GIF ${YUV_LIBRARY})
