pellmar_add_gtest(consent_status_test
  SOURCES unit/consent_status_test.cpp LIBRARIES pellmar_flags)
target_include_directories(consent_status_test PRIVATE "${PROJECT_SOURCE_DIR}")

pellmar_add_gtest(dev_agent_options_test
  SOURCES unit/dev_agent_options_test.cpp
  LIBRARIES pellmar_dev_agent_options)

foreach(test colors fonts layout_helpers permission_window)
  pellmar_add_gtest(${test}_test DISPLAY
    SOURCES unit/${test}_test.mm unit/application_environment.mm
    LIBRARIES pellmar_ui)
endforeach()

pellmar_add_gtest(client_test
  SOURCES unit/client_test.mm unit/agent_process.cpp LIBRARIES pellmar_client pellmar_ui)
target_compile_definitions(client_test PRIVATE PELLMAR_DEV_AGENT="${CMAKE_BINARY_DIR}/pellmar-dev-agent")
add_dependencies(client_test pellmar-dev-agent)
