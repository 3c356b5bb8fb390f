target_link_libraries(test.${name} PRIVATE PkgConfig::SDL2 ${CMAKE_DL_LIBS})
set_target_properties(test.${name} PROPERTIES ENABLE_EXPORTS ON)  # its own glGenRenderbuffers counts for the library
