# Installation and the Debian package: the library with its public headers, CMake and pkg-config files, the
# programs with their manual pages, shell completion and what desktops list them by.
include(CMakePackageConfigHelpers)

set(tavrel_package_folder ${CMAKE_INSTALL_LIBDIR}/cmake/TavrelCaptureBase)

target_sources(TavrelCaptureBase PUBLIC FILE_SET HEADERS BASE_DIRS ${PROJECT_SOURCE_DIR} FILES ${tavrel_headers})
install(TARGETS TavrelCaptureBase EXPORT TavrelCaptureBaseTargets
  LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR}
  FILE_SET HEADERS DESTINATION ${CMAKE_INSTALL_INCLUDEDIR}/TavrelCaptureBase)
install(TARGETS TavrelCaptureBaseFFmpeg LIBRARY DESTINATION ${CMAKE_INSTALL_LIBDIR} NAMELINK_SKIP)
install(EXPORT TavrelCaptureBaseTargets NAMESPACE TavrelCaptureBase:: DESTINATION ${tavrel_package_folder})
configure_package_config_file(cmake/Install/TavrelCaptureBaseConfig.cmake.in
  ${PROJECT_BINARY_DIR}/TavrelCaptureBaseConfig.cmake INSTALL_DESTINATION ${tavrel_package_folder})
write_basic_package_version_file(${PROJECT_BINARY_DIR}/TavrelCaptureBaseConfigVersion.cmake
  COMPATIBILITY SameMinorVersion)
install(FILES
  ${PROJECT_BINARY_DIR}/TavrelCaptureBaseConfig.cmake ${PROJECT_BINARY_DIR}/TavrelCaptureBaseConfigVersion.cmake
  DESTINATION ${tavrel_package_folder})

# The prefix as seen from the pkg-config file, so that the tree may be moved.
set(TAVREL_PC_FOLDER ${CMAKE_INSTALL_LIBDIR}/pkgconfig)
file(RELATIVE_PATH TAVREL_PC_PREFIX /prefix/${TAVREL_PC_FOLDER} /prefix)
configure_file(cmake/Install/TavrelCaptureBase.pc.in ${PROJECT_BINARY_DIR}/TavrelCaptureBase.pc @ONLY)
install(FILES ${PROJECT_BINARY_DIR}/TavrelCaptureBase.pc DESTINATION ${TAVREL_PC_FOLDER})

if(TARGET tavrel)
  set_target_properties(tavrel PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
  install(TARGETS tavrel RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(FILES Documentation/tavrel.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  install(FILES cmake/Install/tavrel.bash-completion
    DESTINATION ${CMAKE_INSTALL_DATADIR}/bash-completion/completions RENAME tavrel)
endif()
if(TARGET tavrel-studio)
  set_target_properties(tavrel-studio PROPERTIES INSTALL_RPATH "$ORIGIN/../${CMAKE_INSTALL_LIBDIR}")
  install(TARGETS tavrel-studio RUNTIME DESTINATION ${CMAKE_INSTALL_BINDIR})
  install(FILES Documentation/tavrel-studio.1 DESTINATION ${CMAKE_INSTALL_MANDIR}/man1)
  set(tavrel_studio_desktop Tools/studio/Desktop/org.tavrelcapturebase.Studio)
  install(FILES ${tavrel_studio_desktop}.desktop DESTINATION ${CMAKE_INSTALL_DATADIR}/applications)
  install(FILES ${tavrel_studio_desktop}.svg DESTINATION ${CMAKE_INSTALL_DATADIR}/icons/hicolor/scalable/apps)
  install(FILES ${tavrel_studio_desktop}.metainfo.xml DESTINATION ${CMAKE_INSTALL_DATADIR}/metainfo)
endif()
install(FILES README.md CHANGELOG.md DESTINATION ${CMAKE_INSTALL_DOCDIR})

set(CPACK_GENERATOR DEB)
set(CPACK_PACKAGE_DIRECTORY ${PROJECT_BINARY_DIR}/package)
set(CPACK_PACKAGE_NAME tavrelcapturebase)
set(CPACK_PACKAGE_CONTACT "TavrelCaptureBase developers <developers@tavrel.invalid>")
set(CPACK_PACKAGE_DESCRIPTION_SUMMARY "${PROJECT_DESCRIPTION}")
set(CPACK_PACKAGE_DESCRIPTION
  "The library TavrelCaptureBase with what is needed to build applications on it,\nthe program tavrel, and the window tavrel-studio.")
set(CPACK_PACKAGING_INSTALL_PREFIX /usr)
set(CPACK_STRIP_FILES ON)
set(CPACK_DEBIAN_FILE_NAME DEB-DEFAULT)
set(CPACK_DEBIAN_PACKAGE_SECTION libdevel)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS ON)
set(CPACK_DEBIAN_PACKAGE_SHLIBDEPS_PRIVATE_DIRS ${CMAKE_LIBRARY_OUTPUT_DIRECTORY})
set(CPACK_DEBIAN_PACKAGE_GENERATE_SHLIBS ON)
# What the headers show; what the library needs to run is found by itself.
set(CPACK_DEBIAN_PACKAGE_DEPENDS "libgles-dev, libfmt-dev, libexpected-dev")
set(CPACK_DEBIAN_PACKAGE_RECOMMENDS "pkg-config, libgl1-mesa-dri, libegl-mesa0, fonts-dejavu-core, xdg-utils")
if(PROJECT_IS_TOP_LEVEL)
  include(CPack)
endif()
