# Flags that the product's Objective-C and C++ files are compiled with, as the target `pellmar_flags`.

option(PELLMAR_TESTS "Build the tests" ON)
option(PELLMAR_BENCHMARKS "Build the benchmarks" OFF)
set(PELLMAR_SANITIZE "" CACHE STRING "Sanitizers to build with, as for -fsanitize= (empty: none)")

# What leaves a binary says so itself; the platform layer, which stands for shared frameworks, does not.
set(CMAKE_CXX_VISIBILITY_PRESET hidden)
set(CMAKE_OBJCXX_VISIBILITY_PRESET hidden)
set(CMAKE_C_VISIBILITY_PRESET hidden)
set(CMAKE_OBJC_VISIBILITY_PRESET hidden)
set(CMAKE_VISIBILITY_INLINES_HIDDEN ON)

add_library(pellmar_flags INTERFACE)
target_compile_options(pellmar_flags INTERFACE
  -Wall -Wextra -Werror -fblocks)

# The version stands in package.json alone. A plain literal here, so that longer ones can be joined from it.
set_property(DIRECTORY APPEND PROPERTY CMAKE_CONFIGURE_DEPENDS package.json)
file(READ "${PROJECT_SOURCE_DIR}/package.json" PELLMAR_PACKAGE)
string(JSON PELLMAR_VERSION GET "${PELLMAR_PACKAGE}" version)
target_compile_definitions(pellmar_flags INTERFACE AFX_VERSION="${PELLMAR_VERSION}")

if(PELLMAR_SANITIZE)
  # The runtime is shared, since node itself is not built with it, and lies in the compiler's folder.
  execute_process(COMMAND ${CMAKE_CXX_COMPILER} -print-file-name=libclang_rt.asan-x86_64.so
    OUTPUT_VARIABLE sanitizer_runtime OUTPUT_STRIP_TRAILING_WHITESPACE COMMAND_ERROR_IS_FATAL ANY)
  cmake_path(GET sanitizer_runtime PARENT_PATH sanitizer_folder)
  add_compile_options(
    -fsanitize=${PELLMAR_SANITIZE} -fno-sanitize-recover=undefined -fno-omit-frame-pointer -g
    -shared-libsan)
  add_link_options(-fsanitize=${PELLMAR_SANITIZE} -shared-libsan
    "LINKER:-rpath,${sanitizer_folder}")
endif()

# Lets functions of `target` be inlined in other files of a release, and those of others in it. Not by -flto=thin: it
# names what files share after a digest of their paths, and builds in two folders would differ.
function(pellmar_optimize_across_files target)
  if(CMAKE_BUILD_TYPE STREQUAL "Release")
    target_compile_options(${target} PRIVATE -flto=full)
    target_link_options(${target} PUBLIC ${PELLMAR_ACROSS_FILES_LINK_OPTIONS})
  endif()
endfunction()
