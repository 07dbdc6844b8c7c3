# Runs the Mac's module in node on Linux: README.md beside this file. What takes part in that is not part of
# the ordinary build: the target is macho_run. It makes macho/ of the build folder, in which a module that
# loads the Mac's stands in the place of pellmar.node, together with what the tests look for.
set(macho_folder "${CMAKE_BINARY_DIR}/macho")
set(macho_loader "${CMAKE_CURRENT_LIST_DIR}")

set(macho_pure_sources
  "${macho_loader}/compact_unwind.cpp" "${macho_loader}/dwarf.cpp" "${macho_loader}/fixups.cpp"
  "${macho_loader}/handlers.cpp" "${macho_loader}/image.cpp" "${macho_loader}/macho_file.cpp"
  "${macho_loader}/objc_reader.cpp" "${macho_loader}/refusal.cpp")

pellmar_add_gtest(macho_loader_test
  SOURCES "${macho_loader}/loader_test.cpp" ${macho_pure_sources} LIBRARIES pellmar_flags)

enable_language(ASM)
# The order counts: main.cpp loads in a constructor, and uses what the others construct.
add_library(macho_loader MODULE ${macho_pure_sources}
  "${macho_loader}/exceptions.cpp" "${macho_loader}/imports.cpp" "${macho_loader}/objc_runtime.cpp"
  "${macho_loader}/objc_stand_ins.cpp" "${macho_loader}/send.S" "${macho_loader}/system_stand_ins.cpp"
  "${macho_loader}/unwinding.cpp" "${macho_loader}/main.cpp")
set_target_properties(macho_loader PROPERTIES OUTPUT_NAME pellmar PREFIX "" SUFFIX ".node"
  LINK_DEPENDS "${macho_loader}/loader.map")
target_link_libraries(macho_loader PRIVATE platform_appkit gcc_s ${CMAKE_DL_LIBS})
# It names few of the libraries' symbols itself. What it has told the runtime of can never be taken back.
target_link_options(macho_loader PRIVATE LINKER:--no-as-needed LINKER:-z,nodelete
  "LINKER:--version-script=${macho_loader}/loader.map")

add_library(macho_native MODULE "${macho_loader}/native.mm")
set_target_properties(macho_native PROPERTIES OUTPUT_NAME native PREFIX "" SUFFIX ".node")
target_link_libraries(macho_native PRIVATE platform_foundation ${CMAKE_DL_LIBS})
target_include_directories(macho_native PRIVATE "${PROJECT_SOURCE_DIR}")

add_library(macho_throwing_center MODULE "${macho_loader}/throwing_center.mm")
set_target_properties(macho_throwing_center PROPERTIES OUTPUT_NAME throwing_center PREFIX "")
target_link_libraries(macho_throwing_center PRIVATE platform_foundation)

foreach(target macho_loader macho_native)
  target_node_headers(${target} node_headers)
endforeach()
set(macho_targets macho_loader macho_native macho_throwing_center)
set_target_properties(${macho_targets} PROPERTIES
  EXCLUDE_FROM_ALL ON LIBRARY_OUTPUT_DIRECTORY "${macho_folder}" LINKER_LANGUAGE CXX)

add_custom_target(macho_run)
add_dependencies(macho_run ${macho_targets} macho_loader_test
  pellmar host pellmar-dev-agent debug_poster center_counter fault_peer)
file(MAKE_DIRECTORY "${macho_folder}")
foreach(file CMakeCache.txt "Pellmar Demo.app" pellmar-dev-agent debug_poster center_counter.so fault_peer)
  file(CREATE_LINK "${CMAKE_BINARY_DIR}/${file}" "${macho_folder}/${file}" SYMBOLIC)
endforeach()
file(CREATE_LINK "${macho_loader}/relay_bits.js" "${macho_folder}/relay_bits" SYMBOLIC)
