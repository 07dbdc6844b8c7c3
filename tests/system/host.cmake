# An add-on with a window and probes for the tests of the desktop host.

find_package(NodeHeaders REQUIRED)

add_library(test_window MODULE "${CMAKE_CURRENT_LIST_DIR}/test_window.mm")
set_target_properties(test_window PROPERTIES PREFIX "" SUFFIX ".node")
target_link_libraries(test_window PRIVATE platform_appkit node_headers)
