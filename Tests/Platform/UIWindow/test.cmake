target_link_libraries(test.${name} PRIVATE PkgConfig::SDL2)
