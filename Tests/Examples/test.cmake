target_compile_definitions(test.${name} PRIVATE
  "TAVREL_PROGRAM=\"$<TARGET_FILE:tavrel>\"" "TAVREL_EXAMPLES=\"$<TARGET_FILE_DIR:example.CustomFilter>/example.\""
  "TAVREL_EXAMPLE_SOURCES=\"${PROJECT_SOURCE_DIR}/Examples\"")
get_property(examples DIRECTORY ${PROJECT_SOURCE_DIR}/Examples PROPERTY BUILDSYSTEM_TARGETS)
add_dependencies(test.${name} ${examples})

