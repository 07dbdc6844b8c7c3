# The table of faults: an agent that breaks the rules, and a native caller.
set(faults_xpc "${PROJECT_SOURCE_DIR}/platform/gnustep/foundation/xpc")

add_executable(fault_peer
  "${CMAKE_CURRENT_LIST_DIR}/fault_peer.cpp"
  "${faults_xpc}/transport/service_directory.cpp" "${faults_xpc}/wire/wire_decoder.cpp"
  "${faults_xpc}/wire/wire_encoder.cpp")
target_include_directories(fault_peer PRIVATE "${faults_xpc}/transport" "${faults_xpc}/wire")
target_link_libraries(fault_peer PRIVATE pellmar_flags)

add_executable(fault_caller "${CMAKE_CURRENT_LIST_DIR}/fault_caller.mm")
target_link_libraries(fault_caller PRIVATE pellmar_client pellmar_ui)
# CMake writes no run path into programs that it links as Objective-C++.
set_target_properties(fault_caller PROPERTIES LINKER_LANGUAGE CXX)

foreach(target fault_peer fault_caller)
  set_target_properties(${target} PROPERTIES RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}")
endforeach()

add_test(NAME faults COMMAND "${NODE_EXECUTABLE}" "${CMAKE_CURRENT_LIST_DIR}/run.mjs")
# The rows run side by side and are timed: nothing else should take the processors meanwhile.
set_tests_properties(faults PROPERTIES TIMEOUT 400 PROCESSORS 2
  ENVIRONMENT "PELLMAR_BUILD_DIR=${CMAKE_BINARY_DIR};ASAN_OPTIONS=detect_leaks=0")
