find_package(GTest REQUIRED)

add_library(agent_process OBJECT "${CMAKE_CURRENT_LIST_DIR}/agent_process.cpp")
target_link_libraries(agent_process PRIVATE pellmar_flags)
