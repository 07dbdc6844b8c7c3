# Tests of how the Linux platform layer looks. look_test opens windows and reads the screen; where picom
# is installed it starts it for one test.
find_package(X11 REQUIRED)
find_package(TIFF REQUIRED)
set(appkit_sources "${PROJECT_SOURCE_DIR}/platform/gnustep/appkit")

pellmar_add_gtest(look_outline_test
  SOURCES
    "${CMAKE_CURRENT_LIST_DIR}/look_outline_test.cpp"
    "${appkit_sources}/drawing/RoundedOutline.cpp"
  LIBRARIES pellmar_flags)
target_include_directories(look_outline_test PRIVATE "${appkit_sources}")

pellmar_add_gtest(look_test DISPLAY
  SOURCES
    "${CMAKE_CURRENT_LIST_DIR}/associated_objects_test.mm"
    "${CMAKE_CURRENT_LIST_DIR}/look_accessibility_test.mm"
    "${CMAKE_CURRENT_LIST_DIR}/look_appearance_test.mm"
    "${CMAKE_CURRENT_LIST_DIR}/look_color_test.mm"
    "${CMAKE_CURRENT_LIST_DIR}/look_control_test.mm"
    "${CMAKE_CURRENT_LIST_DIR}/look_font_test.mm"
    "${CMAKE_CURRENT_LIST_DIR}/look_image_test.mm"
    "${CMAKE_CURRENT_LIST_DIR}/look_layer_test.mm"
    "${CMAKE_CURRENT_LIST_DIR}/look_support.mm"
    "${CMAKE_CURRENT_LIST_DIR}/look_version_test.mm"
    "${CMAKE_CURRENT_LIST_DIR}/look_window_test.mm"
    "${CMAKE_CURRENT_LIST_DIR}/method_replacement_test.mm"
    "${CMAKE_CURRENT_LIST_DIR}/../unit/application_environment.mm"
  LIBRARIES platform_appkit X11::X11 X11::Xext TIFF::TIFF)
target_include_directories(look_test PRIVATE "${appkit_sources}")
