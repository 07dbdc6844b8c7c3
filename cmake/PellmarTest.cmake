# What the sanitizers are told; nothing where the build is without them. Each frame of a stack without frame pointers
# costs at every allocation: no more of them than leaks.supp needs.
if(PELLMAR_SANITIZE MATCHES thread)
  set(PELLMAR_TEST_ENVIRONMENT
    "TSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/support/sanitizers/threads.supp")
elseif(PELLMAR_SANITIZE)
  string(CONCAT PELLMAR_TEST_ENVIRONMENT "ASAN_OPTIONS=fast_unwind_on_malloc=0:malloc_context_size=8;"
    "LSAN_OPTIONS=suppressions=${PROJECT_SOURCE_DIR}/tests/support/sanitizers/leaks.supp:print_suppressions=0")
endif()
set(COCOA_TEST_ENVIRONMENT "${PELLMAR_TEST_ENVIRONMENT}")

set(PELLMAR_TEST_TIMEOUT 900 CACHE STRING "Seconds until a test without a limit of its own has hung")

# What the build for races has to make: the programs of the tests with the label `thread`.
add_custom_target(thread_tests)

# Adds a test:
#
#   pellmar_add_test(NAME SOURCES … [LIBRARIES …] [DISPLAY] [ARGUMENTS …])  a program of GoogleTest
#   pellmar_add_test(NAME SCRIPT file)                                      a file for node's test runner
#   pellmar_add_test(NAME COMMAND …)                                        any other command
#
# each with [LABELS …] [TIMEOUT seconds] [ENVIRONMENT …] [LINUX]. DISPLAY: the program opens windows, so it gets a display
# of its own. Labels: product, package, bundle or repository for what is tested; sanitize and thread for the tests
# that run in the builds with sanitizers, too. The limit of time is for what hangs, not for a slow machine. LINUX: not
# on a Mac, where tests/electron has the application that scripts run in.
function(pellmar_add_test name)
  cmake_parse_arguments(PARSE_ARGV 1 arg
    "DISPLAY;LINUX" "SCRIPT;TIMEOUT" "SOURCES;LIBRARIES;ARGUMENTS;COMMAND;LABELS;ENVIRONMENT")
  if(arg_LINUX AND APPLE)
    return()
  endif()
  set(environment "${PELLMAR_TEST_ENVIRONMENT}")
  if(arg_SOURCES)
    add_executable(${name} ${arg_SOURCES})
    target_link_libraries(${name} PRIVATE ${arg_LIBRARIES} pellmar_flags GTest::gtest GTest::gtest_main)
    target_include_directories(${name} PRIVATE "${PROJECT_SOURCE_DIR}" "${PROJECT_SOURCE_DIR}/tests/support")
    # CMake writes no run path into programs that it links as Objective-C++.
    set_target_properties(${name} PROPERTIES LINKER_LANGUAGE CXX)
    set(arg_COMMAND $<TARGET_FILE:${name}> ${arg_ARGUMENTS})
    # A test's own code is compiled more often than it is run.
    target_compile_options(${name} PRIVATE ${PELLMAR_TEST_OPTIONS} -O0)
    if(TARGET test_headers AND arg_SOURCES MATCHES "[.]mm(;|$)")
      target_precompile_headers(${name} REUSE_FROM test_headers)
    endif()
    if(arg_DISPLAY)
      list(PREPEND arg_COMMAND ${PELLMAR_DISPLAY})
    endif()
    if("thread" IN_LIST arg_LABELS)
      add_dependencies(thread_tests ${name})
    endif()
  elseif(arg_SCRIPT)
    set(arg_COMMAND "${NODE_EXECUTABLE}" --test "${CMAKE_CURRENT_SOURCE_DIR}/${arg_SCRIPT}")
    # Node itself is not built with sanitizers, and its leaks are its own.
    set(environment ASAN_OPTIONS=detect_leaks=0)
  endif()
  if(NOT arg_TIMEOUT)
    set(arg_TIMEOUT ${PELLMAR_TEST_TIMEOUT})
  endif()
  add_test(NAME ${name} COMMAND ${arg_COMMAND})
  set_tests_properties(${name} PROPERTIES TIMEOUT ${arg_TIMEOUT} LABELS "${arg_LABELS}"
    ENVIRONMENT "PELLMAR_BUILD_DIR=${CMAKE_BINARY_DIR};${environment};${arg_ENVIRONMENT}")
endfunction()

# Adds a longer form of a test for `scripts/test` to run by its label: pellmar_add_long_test(NAME LABEL SCRIPT file
# ENVIRONMENT …).
function(pellmar_add_long_test name label)
  cmake_parse_arguments(PARSE_ARGV 2 arg "" "SCRIPT" "ENVIRONMENT")
  add_test(NAME ${name} CONFIGURATIONS Long
    COMMAND "${NODE_EXECUTABLE}" --test "${CMAKE_CURRENT_SOURCE_DIR}/${arg_SCRIPT}")
  set_tests_properties(${name} PROPERTIES TIMEOUT 3600 LABELS ${label} RUN_SERIAL ON
    ENVIRONMENT "PELLMAR_BUILD_DIR=${CMAKE_BINARY_DIR};${arg_ENVIRONMENT}")
endfunction()
