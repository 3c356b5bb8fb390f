set(library_under_test tavrel_private_classes)
set(runs_elsewhere TRUE)  # in a machine of its own (CMakeLists.txt)
target_compile_definitions(test.${name} PRIVATE "TAVREL_PROGRAM=\"$<TARGET_FILE:tavrel>\"")
add_dependencies(test.${name} tavrel)
