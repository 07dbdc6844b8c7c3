# A Mac has no package of it that was built for both slices and the oldest system.
include(FetchContent)
set(INSTALL_GTEST OFF)
FetchContent_Declare(googletest
  GIT_REPOSITORY https://github.com/google/googletest.git
  GIT_TAG b514bdc898e2951020cbdca1304b75f5950d1f59) # 1.15.2
FetchContent_MakeAvailable(googletest)

# What lets a test pass for any macOS: the library for Linux has a kit with the same header.
add_library(cocoa_testing OBJECT
  "${CMAKE_CURRENT_LIST_DIR}/AppKitVersion.c" "${CMAKE_CURRENT_LIST_DIR}/PlatformVersions.mm")
target_include_directories(cocoa_testing PUBLIC "${CMAKE_CURRENT_LIST_DIR}")
target_link_libraries(cocoa_testing PRIVATE pellmar_flags)
add_library(Cocoa::Testing ALIAS cocoa_testing)

add_library(agent_process OBJECT "${CMAKE_CURRENT_LIST_DIR}/agent_process.mm")
target_include_directories(agent_process PRIVATE "${PROJECT_SOURCE_DIR}")
target_link_libraries(agent_process PRIVATE pellmar_flags Cocoa::Foundation)
