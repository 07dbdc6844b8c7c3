# Finds the headers of the `node` that runs the tests, as the target `node_headers`.
#
# NODE_EXECUTABLE   that node (a cache entry; found on PATH)
# NODE_MODULES      its module version number
# PELLMAR_NODE_HEADERS  instead, the folder of another runtime's headers (node.h, v8.h, uv.h)
#
# An add-on loads only into the runtime whose headers it was built with, so headers of another
# version than NODE_EXECUTABLE's are refused here and not when the module is first required.

find_program(NODE_EXECUTABLE NAMES node nodejs DOC "The node that runs the tests")
if(NODE_EXECUTABLE)
  execute_process(
    COMMAND "${NODE_EXECUTABLE}" -p
      "process.versions.modules + ';' + require('fs').realpathSync(process.execPath)"
    OUTPUT_VARIABLE node_facts OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  list(GET node_facts 0 NODE_MODULES)
  list(GET node_facts 1 NODE_RUNTIME)
  cmake_path(GET NODE_RUNTIME PARENT_PATH node_prefix)
  cmake_path(GET node_prefix PARENT_PATH node_prefix)
endif()

set(PELLMAR_NODE_HEADERS "" CACHE PATH "Headers of a runtime other than NODE_EXECUTABLE to build for")
if(PELLMAR_NODE_HEADERS)
  foreach(folder NODE_INCLUDE_DIR NODE_V8_INCLUDE_DIR NODE_UV_INCLUDE_DIR)
    set(${folder} "${PELLMAR_NODE_HEADERS}")
  endforeach()
else()
  # Debian keeps V8's and libuv's headers in packages of their own beside node's.
  find_path(NODE_INCLUDE_DIR NAMES node_version.h
    HINTS "${node_prefix}/include/node" PATHS /usr/include/node /usr/include/nodejs/src)
  find_path(NODE_V8_INCLUDE_DIR NAMES v8.h
    HINTS "${NODE_INCLUDE_DIR}" "${NODE_INCLUDE_DIR}/../deps/v8/include")
  find_path(NODE_UV_INCLUDE_DIR NAMES uv.h
    HINTS "${NODE_INCLUDE_DIR}" "${NODE_INCLUDE_DIR}/../deps/uv/include")

  if(NODE_INCLUDE_DIR)
    file(STRINGS "${NODE_INCLUDE_DIR}/node_version.h" node_version_line
      REGEX "^#define NODE_MODULE_VERSION +[0-9]+")
    string(REGEX MATCH "[0-9]+" node_headers_modules "${node_version_line}")
    if(NODE_MODULES AND NOT node_headers_modules STREQUAL NODE_MODULES)
      message(FATAL_ERROR "${NODE_EXECUTABLE} takes modules of version ${NODE_MODULES}, but the headers"
        " in ${NODE_INCLUDE_DIR} are of version ${node_headers_modules}")
    endif()
  endif()
endif()

include(FindPackageHandleStandardArgs)
find_package_handle_standard_args(NodeHeaders
  REQUIRED_VARS NODE_EXECUTABLE NODE_INCLUDE_DIR NODE_V8_INCLUDE_DIR NODE_UV_INCLUDE_DIR)
mark_as_advanced(NODE_INCLUDE_DIR NODE_V8_INCLUDE_DIR NODE_UV_INCLUDE_DIR)

# Adds a runtime's headers as the target `name`: `add_node_headers(NAME NODE_DIR V8_DIR UV_DIR)`. What
# is compiled against it has the engine's own settings.
function(add_node_headers name node v8 uv)
  add_library(${name} INTERFACE IMPORTED GLOBAL)
  target_include_directories(${name} SYSTEM INTERFACE "${node}" "${v8}" "${uv}")
  execute_process(
    COMMAND "${NODE_EXECUTABLE}" "${CMAKE_CURRENT_FUNCTION_LIST_DIR}/engine-defines.mjs" "${node}" "${v8}"
    OUTPUT_VARIABLE defines OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  string(REPLACE "\n" ";" defines "${defines}")
  target_compile_definitions(${name} INTERFACE ${defines})
  file(STRINGS "${node}/node_version.h" version REGEX "^#define NODE_MODULE_VERSION +[0-9]+")
  string(REGEX MATCH "[0-9]+" version "${version}")
  set_target_properties(${name} PROPERTIES PELLMAR_MODULE_VERSION ${version})
  # The engine's headers say themselves when they ask for more than the tree's C++17; Node 24's do.
  file(STRINGS "${v8}/v8config.h" needs_cxx20 REGEX "C\\+\\+20 or later required")
  if(needs_cxx20)
    set_target_properties(${name} PROPERTIES PELLMAR_CXX_STANDARD 20)
  endif()
endfunction()

# Compiles `target` against the headers of the target `headers`, in the C++ that they ask for. CMake's
# own way to say this, a compile feature, does not reach Objective-C++.
function(target_node_headers target headers)
  target_link_libraries(${target} PRIVATE ${headers})
  get_target_property(standard ${headers} PELLMAR_CXX_STANDARD)
  if(standard)
    set_target_properties(${target} PROPERTIES CXX_STANDARD ${standard} OBJCXX_STANDARD ${standard})
  endif()
endfunction()

if(NodeHeaders_FOUND AND NOT TARGET node_headers)
  add_node_headers(node_headers
    "${NODE_INCLUDE_DIR}" "${NODE_V8_INCLUDE_DIR}" "${NODE_UV_INCLUDE_DIR}")
endif()
