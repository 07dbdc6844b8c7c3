find_package(GTest REQUIRED)

# GoogleTest takes longer to compile than most tests: once for all in Objective-C++.
file(TOUCH "${CMAKE_CURRENT_BINARY_DIR}/gtest.mm")
add_library(test_headers OBJECT "${CMAKE_CURRENT_BINARY_DIR}/gtest.mm")
target_link_libraries(test_headers PRIVATE pellmar_flags Cocoa::Foundation GTest::gtest)
target_compile_options(test_headers PRIVATE -O0 -fPIE)
target_precompile_headers(test_headers PRIVATE <gtest/gtest.h>)

add_library(agent_process OBJECT "${CMAKE_CURRENT_LIST_DIR}/agent_process.cpp")
target_link_libraries(agent_process PRIVATE pellmar_flags)
