target_compile_definitions(test.Platform.Imaging PRIVATE TAVREL_TESTS_FOLDER="${CMAKE_CURRENT_SOURCE_DIR}" ${TAVREL_PICTURE_FORMATS})
