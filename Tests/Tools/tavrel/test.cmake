target_compile_definitions(test.${name} PRIVATE "TAVREL_PROGRAM=\"$<TARGET_FILE:tavrel>\"")
add_dependencies(test.${name} tavrel)
target_link_libraries(test.${name} PRIVATE nlohmann_json::nlohmann_json)
set(parts 4)
