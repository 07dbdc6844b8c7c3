# Tests of the Linux platform layer's connections. The faults have a process of their own as peer.
find_package(PkgConfig REQUIRED)
pkg_check_modules(FFI REQUIRED IMPORTED_TARGET libffi)
set(xpc_sources "${CMAKE_CURRENT_LIST_DIR}/../../platform/gnustep/foundation/xpc/wire")

add_executable(xpc_peer
  "${CMAKE_CURRENT_LIST_DIR}/xpc_peer.mm" "${CMAKE_CURRENT_LIST_DIR}/xpc_test_server.mm")
target_link_libraries(xpc_peer PRIVATE platform_foundation)
# CMake writes no run path into programs that it links as Objective-C++.
set_target_properties(xpc_peer PROPERTIES LINKER_LANGUAGE CXX)

add_executable(xpc_wire_test
  "${CMAKE_CURRENT_LIST_DIR}/xpc_wire_test.cpp"
  "${xpc_sources}/wire_decoder.cpp" "${xpc_sources}/wire_encoder.cpp")
add_executable(xpc_signature_test
  "${CMAKE_CURRENT_LIST_DIR}/xpc_signature_test.cpp" "${xpc_sources}/signature.cpp")
add_executable(xpc_test
  "${CMAKE_CURRENT_LIST_DIR}/xpc_test.mm" "${CMAKE_CURRENT_LIST_DIR}/xpc_test_server.mm"
  "${CMAKE_CURRENT_LIST_DIR}/xpc_test_support.cpp")
add_executable(xpc_faults_test
  "${CMAKE_CURRENT_LIST_DIR}/xpc_faults_test.mm" "${CMAKE_CURRENT_LIST_DIR}/xpc_test_server.mm"
  "${CMAKE_CURRENT_LIST_DIR}/xpc_test_support.cpp" "${xpc_sources}/wire_encoder.cpp")

foreach(test IN ITEMS wire signature)
  target_link_libraries(xpc_${test}_test PRIVATE pellmar_flags PkgConfig::FFI GTest::gtest_main)
endforeach()
foreach(test IN ITEMS test faults_test)
  target_link_libraries(xpc_${test} PRIVATE platform_foundation GTest::gtest_main)
  add_dependencies(xpc_${test} xpc_peer)
endforeach()
foreach(test IN ITEMS xpc_wire_test xpc_signature_test xpc_test xpc_faults_test)
  target_include_directories(${test} PRIVATE "${xpc_sources}")
  string(REGEX REPLACE "_test$" "" name ${test})
  add_test(NAME platform.${name} COMMAND ${test})
  set_tests_properties(platform.${name} PROPERTIES TIMEOUT 240
    ENVIRONMENT "${PELLMAR_TEST_ENVIRONMENT}")
endforeach()
