# Tests of the Linux platform layer's blocks, dispatch with its workers, and notifications.
foreach(name IN ITEMS blocks dispatch workers notifications)
  add_executable(platform_${name}_test "${CMAKE_CURRENT_LIST_DIR}/${name}_test.mm")
  target_link_libraries(platform_${name}_test PRIVATE
    platform_foundation GTest::gtest GTest::gtest_main)
  # CMake writes no run path into programs that it links as Objective-C++.
  set_target_properties(platform_${name}_test PROPERTIES LINKER_LANGUAGE CXX)
  add_test(NAME platform.${name} COMMAND platform_${name}_test)
  set_tests_properties(platform.${name} PROPERTIES TIMEOUT 240
    ENVIRONMENT "${PELLMAR_TEST_ENVIRONMENT}")
endforeach()
# It kills daemons and starts others at once; on a busy machine GNUstep may miss the new one.
set_tests_properties(platform.notifications PROPERTIES RUN_SERIAL ON)
