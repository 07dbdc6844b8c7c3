# Toolchain file: clang-19 and lld-19 on Linux build for macOS. `scripts/macos-cross` prepares the folders
# named here; a Mac with Xcode's tools needs none of it (preset `macos-universal`).
#
#   PELLMAR_MACOS_SYSROOT  a folder in the layout of a macOS SDK
#   PELLMAR_LIBCXX_HEADERS folder of the C++ library's headers
#   CMAKE_OSX_ARCHITECTURES  x86_64, arm64 or both; for both the compiler calls `lipo`

list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES PELLMAR_MACOS_SYSROOT PELLMAR_LIBCXX_HEADERS)

set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_OSX_SYSROOT "${PELLMAR_MACOS_SYSROOT}")

# CMake looks up a bare name for C and C++ only.
find_program(PELLMAR_CLANG clang-19 REQUIRED)
find_program(PELLMAR_CLANGXX clang++-19 REQUIRED)
foreach(language C CXX OBJC OBJCXX)
  if(language MATCHES "CXX")
    set(CMAKE_${language}_COMPILER "${PELLMAR_CLANGXX}")
    # clang would take the headers beside its own binary before those of the sysroot.
    set(CMAKE_${language}_FLAGS_INIT "-nostdinc++ -isystem ${PELLMAR_LIBCXX_HEADERS}")
  else()
    set(CMAKE_${language}_COMPILER "${PELLMAR_CLANG}")
  endif()
  set(CMAKE_${language}_COMPILER_TARGET x86_64-apple-macosx) # -arch says which processor's
  # As Apple's ar does, but not LLVM's: this finds the symbols in objects of several slices.
  set(CMAKE_${language}_CREATE_STATIC_LIBRARY "llvm-libtool-darwin-19 -static -o <TARGET> <OBJECTS>")
endforeach()

set(CMAKE_AR llvm-ar-19)
set(CMAKE_RANLIB llvm-ranlib-19)
set(CMAKE_INSTALL_NAME_TOOL llvm-install-name-tool-19)
set(CMAKE_STRIP llvm-strip-19)

# For the crash reports of what is shipped, without a path of the machine that built it.
add_compile_options(-g "-fdebug-prefix-map=${CMAKE_SOURCE_DIR}=/pellmar"
  "-fdebug-prefix-map=${PELLMAR_NODE_HEADERS}=/node")
# dsymutil goes by the linker's list of objects, to which those belong that optimizing across files makes.
# scripts/macos-cross sets ZERO_AR_DATE, since the file's UUID is a digest of that list as well.
cmake_path(GET CMAKE_BINARY_DIR PARENT_PATH builds)
set(CMAKE_MODULE_LINKER_FLAGS_INIT "-Wl,-object_path_lto,${CMAKE_BINARY_DIR}/lto")
add_link_options(-fuse-ld=lld "LINKER:-oso_prefix,${builds}/")
# A stub of libSystem may name only what the module uses; programs are linked to see that they compile
# for a Mac, and look up the rest.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-Wl,-undefined,dynamic_lookup")

set(CMAKE_FIND_ROOT_PATH "${PELLMAR_MACOS_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
