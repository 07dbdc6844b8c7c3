# What the tests of the debug log relay need besides the development agent.
add_executable(debug_poster
  "${CMAKE_CURRENT_LIST_DIR}/debug_poster.mm" "${PROJECT_SOURCE_DIR}/client/AFXConstants.mm")
target_link_libraries(debug_poster PRIVATE platform_foundation)
target_include_directories(debug_poster PRIVATE "${PROJECT_SOURCE_DIR}")
# CMake writes no run path into programs that it links as Objective-C++.
set_target_properties(debug_poster PROPERTIES LINKER_LANGUAGE CXX)

add_executable(relay_bits "${CMAKE_CURRENT_LIST_DIR}/relay_bits.mm")
target_link_libraries(relay_bits PRIVATE pellmar_client pellmar_ui)
set_target_properties(relay_bits PROPERTIES LINKER_LANGUAGE CXX)

add_library(center_counter MODULE "${CMAKE_CURRENT_LIST_DIR}/center_counter.c")
set_target_properties(center_counter PROPERTIES PREFIX "" C_VISIBILITY_PRESET default)

foreach(target debug_poster relay_bits center_counter)
  set_target_properties(${target} PROPERTIES
    RUNTIME_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}" LIBRARY_OUTPUT_DIRECTORY "${CMAKE_BINARY_DIR}")
endforeach()
