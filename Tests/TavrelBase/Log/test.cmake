# The sanitizers slow every hand-over down many times.
if(TAVREL_SANITIZE)
  target_compile_definitions(test.${name} PRIVATE TAVREL_LOG_TEST_LINES=10000)
else()
  target_compile_definitions(test.${name} PRIVATE TAVREL_LOG_TEST_LINES=100000)
endif()
