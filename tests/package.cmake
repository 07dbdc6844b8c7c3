# The module once more, recorded as of a version that no runtime of the tests has: Electron 11's.
set(misfit_version 85)
pellmar_add_module(misfit node_headers "${CMAKE_BINARY_DIR}/misfit" ${misfit_version})

pellmar_add_node_test(loader system/loader.test.mjs)
pellmar_add_node_test(package package/package.test.mjs)
pellmar_add_node_test(types types/types.test.mjs)
