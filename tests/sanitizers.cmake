# What only a build with sanitizers can tell.
if(PELLMAR_SANITIZE MATCHES address)
  add_test(NAME leaks
    COMMAND "${NODE_EXECUTABLE}" --test "${CMAKE_CURRENT_SOURCE_DIR}/sanitizers/leaks.test.mjs")
  set_tests_properties(leaks PROPERTIES TIMEOUT 400
    ENVIRONMENT "PELLMAR_BUILD_DIR=${CMAKE_BINARY_DIR};${PELLMAR_TEST_ENVIRONMENT}")
endif()

# The parts where threads meet, and which need nothing that is slow or starts an engine.
set_tests_properties(client_test platform.dispatch platform.xpc platform.xpc_faults
  PROPERTIES LABELS thread)
