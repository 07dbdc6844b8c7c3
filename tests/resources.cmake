# The consent window's pictures, held against the TIFF library and against the window's own toolkit.
if(NOT APPLE)
  find_package(PkgConfig REQUIRED)
  pkg_check_modules(pictures REQUIRED IMPORTED_TARGET libtiff-4 lcms2)

  add_executable(pictures_test ${CMAKE_CURRENT_LIST_DIR}/unit/pictures_test.cpp)
  target_compile_definitions(pictures_test PRIVATE
    PELLMAR_ROOT="${PROJECT_SOURCE_DIR}" PELLMAR_CXX="${CMAKE_CXX_COMPILER}")
  target_link_libraries(pictures_test PRIVATE
    pellmar_flags pellmar_resources PkgConfig::pictures GTest::gtest GTest::gtest_main)
  add_test(NAME pictures COMMAND pictures_test)
  set_tests_properties(pictures PROPERTIES TIMEOUT 240)
endif()

add_executable(pictures_image_test ${CMAKE_CURRENT_LIST_DIR}/unit/pictures_image_test.mm)
target_link_libraries(pictures_image_test PRIVATE
  pellmar_flags pellmar_resources GTest::gtest GTest::gtest_main)
if(APPLE)
  target_link_libraries(pictures_image_test PRIVATE "-framework AppKit")
else()
  target_link_libraries(pictures_image_test PRIVATE platform_appkit)
endif()
add_test(NAME pictures_image COMMAND pictures_image_test)
set_tests_properties(pictures_image PROPERTIES TIMEOUT 60)
