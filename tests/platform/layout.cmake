# The Linux platform layer's Auto Layout. vfl and solver are plain C++.
pellmar_add_gtest(vfl_test SOURCES platform/vfl_test.cpp LIBRARIES platform_appkit)
pellmar_add_gtest(solver_test SOURCES platform/solver_test.cpp LIBRARIES platform_appkit)
pellmar_add_gtest(layout_test DISPLAY SOURCES platform/layout_test.mm LIBRARIES platform_appkit)
foreach(test vfl_test solver_test layout_test)
  target_include_directories(${test} PRIVATE "${PROJECT_SOURCE_DIR}/platform/gnustep/appkit")
endforeach()
