# Toolchain file: clang-19 and lld-19 on Linux build one slice of the macOS bundle. `scripts/macos-cross`
# prepares the folders named here and calls this once per slice; a Mac with Xcode's tools needs none of
# it (preset `macos-universal`).
#
#   PELLMAR_SLICE          x86_64 (macOS 10.10 and later) or arm64 (macOS 11.0 and later)
#   PELLMAR_MACOS_SYSROOT  a folder in the layout of a macOS SDK
#   PELLMAR_LIBCXX_HEADERS folder of the C++ library's headers

list(APPEND CMAKE_TRY_COMPILE_PLATFORM_VARIABLES
  PELLMAR_SLICE PELLMAR_MACOS_SYSROOT PELLMAR_LIBCXX_HEADERS)

set(CMAKE_SYSTEM_NAME Darwin)
set(CMAKE_SYSTEM_PROCESSOR "${PELLMAR_SLICE}")
set(CMAKE_OSX_ARCHITECTURES "${PELLMAR_SLICE}")
set(CMAKE_OSX_SYSROOT "${PELLMAR_MACOS_SYSROOT}")
if(PELLMAR_SLICE STREQUAL "x86_64")
  set(CMAKE_OSX_DEPLOYMENT_TARGET 10.10)
elseif(PELLMAR_SLICE STREQUAL "arm64")
  set(CMAKE_OSX_DEPLOYMENT_TARGET 11.0)
else()
  message(FATAL_ERROR "PELLMAR_SLICE is \"${PELLMAR_SLICE}\": x86_64 or arm64 expected")
endif()

# CMake looks up a bare name for C and C++ only.
find_program(PELLMAR_CLANG clang-19 REQUIRED)
find_program(PELLMAR_CLANGXX clang++-19 REQUIRED)
foreach(language C CXX OBJC OBJCXX)
  if(language MATCHES "CXX")
    set(CMAKE_${language}_COMPILER "${PELLMAR_CLANGXX}")
    # clang would take the headers beside its own binary before those of the sysroot.
    set(CMAKE_${language}_FLAGS_INIT
      "-nostdinc++ -isystem ${PELLMAR_LIBCXX_HEADERS} -Werror=unguarded-availability")
  else()
    set(CMAKE_${language}_COMPILER "${PELLMAR_CLANG}")
    set(CMAKE_${language}_FLAGS_INIT "-Werror=unguarded-availability")
  endif()
  set(CMAKE_${language}_COMPILER_TARGET "${PELLMAR_SLICE}-apple-macosx")
endforeach()

set(CMAKE_AR llvm-ar-19)
set(CMAKE_RANLIB llvm-ranlib-19)
set(CMAKE_INSTALL_NAME_TOOL llvm-install-name-tool-19)
set(CMAKE_STRIP llvm-strip-19)

# Local and debugging symbols are left out by the linker itself, since removing them afterwards would
# break the signature.
set(CMAKE_MODULE_LINKER_FLAGS_INIT
  "-fuse-ld=lld -Wl,-dead_strip -Wl,-dead_strip_dylibs -Wl,-x -Wl,-S -Wl,-adhoc_codesign")
# A stub of libSystem may name only what the module uses; programs are linked to see that they compile
# for a Mac, and look up the rest.
set(CMAKE_EXE_LINKER_FLAGS_INIT "-fuse-ld=lld -Wl,-undefined,dynamic_lookup")

set(CMAKE_FIND_ROOT_PATH "${PELLMAR_MACOS_SYSROOT}")
set(CMAKE_FIND_ROOT_PATH_MODE_PROGRAM NEVER)
set(CMAKE_FIND_ROOT_PATH_MODE_LIBRARY ONLY)
set(CMAKE_FIND_ROOT_PATH_MODE_INCLUDE BOTH)
