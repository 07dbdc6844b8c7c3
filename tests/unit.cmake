pellmar_add_gtest(consent_status_test
  SOURCES unit/consent_status_test.cpp LIBRARIES pellmar_flags)
target_include_directories(consent_status_test PRIVATE "${PROJECT_SOURCE_DIR}")

pellmar_add_gtest(placeholders_test
  SOURCES unit/placeholders_test.cpp LIBRARIES pellmar_flags)
target_include_directories(placeholders_test PRIVATE "${PROJECT_SOURCE_DIR}")

pellmar_add_gtest(dev_agent_options_test
  SOURCES unit/dev_agent_options_test.cpp
  LIBRARIES pellmar_dev_agent_options)

pellmar_add_gtest(macos_service_registration_test
  SOURCES unit/macos_service_registration_test.cpp
    "${PROJECT_SOURCE_DIR}/agent/macos/PLServiceRegistration.cpp"
  LIBRARIES pellmar_flags)
target_include_directories(macos_service_registration_test PRIVATE "${PROJECT_SOURCE_DIR}")

pellmar_add_gtest(module_record_test
  SOURCES unit/module_record_test.cpp LIBRARIES pellmar_flags ${CMAKE_DL_LIBS})
target_node_headers(module_record_test node_headers)
target_compile_definitions(module_record_test PRIVATE
  PELLMAR_MODULE="${CMAKE_BINARY_DIR}/pellmar.node")
set_target_properties(module_record_test PROPERTIES ENABLE_EXPORTS ON)
add_dependencies(module_record_test pellmar)

# The Linux layer passes for any macOS; on a Mac the tests bring their own header and code for that.
if(APPLE)
  add_library(platform_versions OBJECT
    unit/macos/AppKitVersion.c unit/macos/PlatformVersions.mm)
  target_include_directories(platform_versions PUBLIC "${CMAKE_CURRENT_LIST_DIR}/unit/macos")
  target_link_libraries(platform_versions PRIVATE pellmar_flags)
  set(versions platform_versions)
  set(agent_process unit/macos/agent_process.mm)
else()
  set(versions "")
  set(agent_process unit/agent_process.cpp)
endif()

foreach(test colors fonts layout_helpers permission_window permission_window_contents)
  pellmar_add_gtest(${test}_test DISPLAY
    SOURCES unit/${test}_test.mm unit/application_environment.mm
    LIBRARIES pellmar_ui ${versions})
endforeach()

pellmar_add_gtest(right_to_left_test DISPLAY
  SOURCES unit/right_to_left_test.mm unit/application_environment.mm
  LIBRARIES pellmar_ui
  ARGUMENTS -NSForceRightToLeftWritingDirection YES -AppleTextDirection YES)

pellmar_add_gtest(consent_flow_test DISPLAY
  SOURCES unit/consent_flow_test.mm unit/scripted_service.mm unit/application_environment.mm
  LIBRARIES pellmar_client pellmar_ui)

pellmar_add_gtest(service_accessor_test
  SOURCES unit/service_accessor_test.mm unit/scripted_connection.mm
  LIBRARIES pellmar_client pellmar_ui)

pellmar_add_gtest(usage_reporter_test
  SOURCES unit/usage_reporter_test.mm unit/scripted_connection.mm
  LIBRARIES pellmar_client pellmar_ui)

pellmar_add_gtest(debug_log_relay_test
  SOURCES unit/debug_log_relay_test.mm LIBRARIES pellmar_client pellmar_ui)

pellmar_add_gtest(functions_test
  SOURCES unit/functions_test.mm unit/scripted_service.mm
  LIBRARIES pellmar_client pellmar_ui)

# Reads the screen through X, and opens some hundred windows.
if(NOT APPLE)
  pellmar_add_gtest(window_appearance_test DISPLAY
    SOURCES unit/window_appearance_test.mm platform/look_support.mm unit/application_environment.mm
    LIBRARIES pellmar_ui X11::X11)
  set_tests_properties(window_appearance_test PROPERTIES TIMEOUT 480)
endif()

pellmar_add_gtest(client_test
  SOURCES unit/client_test.mm ${agent_process} LIBRARIES pellmar_client pellmar_ui)
target_compile_definitions(client_test PRIVATE PELLMAR_DEV_AGENT="${CMAKE_BINARY_DIR}/pellmar-dev-agent")
add_dependencies(client_test pellmar-dev-agent)
