target_compile_definitions(test.${name} PRIVATE
  "TAVREL_PROGRAM=\"$<TARGET_FILE:tavrel>\"" "TAVREL_EXAMPLES=\"$<TARGET_FILE_DIR:example.CustomFilter>/example.\""
  "TAVREL_EXAMPLE_SOURCES=\"${PROJECT_SOURCE_DIR}/Examples\"")
foreach(example IN ITEMS RecordWithEffects FilterPictures CustomFilter ExternalFilter PreviewInSDL)
  add_dependencies(test.${name} example.${example})
endforeach()
