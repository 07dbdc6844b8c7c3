# Long runs in one process. Among the tests is a short form of each; the long ones run with
# `scripts/test --endurance`.
add_library(memory_probe MODULE endurance/memory_probe.cpp)
target_link_libraries(memory_probe PRIVATE pellmar_flags node_headers)
# Not in the build's top folder, where the package looks for the module.
set_target_properties(memory_probe PROPERTIES PREFIX "" SUFFIX ".node")

# The sanitizers' own allocators keep what is freed for a while.
if(NOT PELLMAR_SANITIZE)
  pellmar_add_node_test(endurance endurance/endurance.test.mjs)
  add_test(NAME endurance.long CONFIGURATIONS Long
    COMMAND "${NODE_EXECUTABLE}" --test "${CMAKE_CURRENT_SOURCE_DIR}/endurance/endurance.test.mjs")
  set_tests_properties(endurance.long PROPERTIES TIMEOUT 3600 LABELS endurance RUN_SERIAL ON ENVIRONMENT
    "PELLMAR_BUILD_DIR=${CMAKE_BINARY_DIR};ENDURANCE_EVENTS=1000000;ENDURANCE_ROUNDS=1000")
endif()
