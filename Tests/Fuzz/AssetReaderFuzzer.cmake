# The movie reader: configure with clang and -DTAVREL_BUILD_FUZZERS=ON, then run for instance
#   build/fuzz/bin/AssetReaderFuzzer -max_len=65536 -timeout=20 -rss_limit_mb=4096 -max_total_time=600 corpus Tests/Fuzz/Movie
# The sources under test are built here once more, so that the fuzzer sees their branches.
file(GLOB_RECURSE media_sources CONFIGURE_DEPENDS
  ${PROJECT_SOURCE_DIR}/Platform/Media/*.cpp ${PROJECT_SOURCE_DIR}/Platform/Dispatch/*.cpp
  ${PROJECT_SOURCE_DIR}/Platform/Foundation/*.cpp ${PROJECT_SOURCE_DIR}/Platform/Graphics/*.cpp)
add_executable(AssetReaderFuzzer ${CMAKE_CURRENT_LIST_DIR}/AssetReaderFuzzer.cpp ${media_sources})
target_include_directories(AssetReaderFuzzer PRIVATE ${PROJECT_SOURCE_DIR})
target_compile_options(AssetReaderFuzzer PRIVATE -O1 -g1 -fsanitize=fuzzer,address,undefined
  -fno-sanitize-recover=undefined -fno-sanitize=vptr)
target_link_options(AssetReaderFuzzer PRIVATE -fsanitize=fuzzer,address,undefined)
target_link_libraries(AssetReaderFuzzer PRIVATE ${TAVREL_PUBLIC_LIBRARIES} ${TAVREL_PRIVATE_LIBRARIES})
