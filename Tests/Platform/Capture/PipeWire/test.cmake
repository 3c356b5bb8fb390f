set(library_under_test tavrel_private_classes)
target_compile_definitions(test.${name} PRIVATE "TAVREL_PROGRAM=\"$<TARGET_FILE:tavrel>\"")
add_dependencies(test.${name} tavrel)
