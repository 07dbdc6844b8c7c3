# What the tests of the desktop host need besides: an add-on with a window and probes, the settings
# portal of a desktop, and what makes the host slow to see what happens on the display.

find_package(NodeHeaders REQUIRED)
find_package(PkgConfig REQUIRED)
pkg_check_modules(DBUS REQUIRED IMPORTED_TARGET dbus-1)
find_package(X11 REQUIRED)

add_library(test_window MODULE "${CMAKE_CURRENT_LIST_DIR}/test_window.mm")
set_target_properties(test_window PROPERTIES PREFIX "" SUFFIX ".node")
target_link_libraries(test_window PRIVATE platform_appkit)
target_node_headers(test_window node_headers)

add_executable(settings_portal "${CMAKE_CURRENT_LIST_DIR}/settings_portal.c")
target_compile_options(settings_portal PRIVATE -Wall -Wextra -Werror)
target_link_libraries(settings_portal PRIVATE PkgConfig::DBUS)

add_library(slow_look MODULE "${CMAKE_CURRENT_LIST_DIR}/slow_look.c")
set_target_properties(slow_look PROPERTIES PREFIX "" C_VISIBILITY_PRESET default)
target_compile_options(slow_look PRIVATE -Wall -Wextra -Werror)
target_link_libraries(slow_look PRIVATE X11::X11)
