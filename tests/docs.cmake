# The code that the documents show compiles with the public header alone.
add_library(docs_examples OBJECT "${PROJECT_SOURCE_DIR}/docs/examples/ReportsAndCodes.m")
target_include_directories(docs_examples PRIVATE "${PROJECT_SOURCE_DIR}")
target_link_libraries(docs_examples PRIVATE pellmar_flags)
if(NOT APPLE)
  target_link_libraries(docs_examples PRIVATE platform_appkit)
  pellmar_add_node_test(docs system/docs.test.mjs)
endif()
