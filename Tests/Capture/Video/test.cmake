target_link_libraries(test.${name} PRIVATE ${CMAKE_DL_LIBS})
set_target_properties(test.${name} PROPERTIES ENABLE_EXPORTS ON)  # its own LLVMGetPointerToGlobal counts for the driver
add_test(NAME ${name}.first COMMAND test.${name} --gtest_filter=CameraTest.TheFirstSwitchCompilesNothing)
set_tests_properties(${name}.first PROPERTIES TIMEOUT 120)
