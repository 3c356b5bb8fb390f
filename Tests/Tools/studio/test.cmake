target_compile_definitions(test.${name} PRIVATE
  "TAVREL_STUDIO_PROGRAM=\"$<TARGET_FILE:tavrel-studio>\"" "TAVREL_PROGRAM=\"$<TARGET_FILE:tavrel>\"")
add_dependencies(test.${name} tavrel tavrel-studio)
target_link_libraries(test.${name} PRIVATE tavrel_studio_model PkgConfig::X11)
