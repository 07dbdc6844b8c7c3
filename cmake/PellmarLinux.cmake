# Linux: the library that stands for Apple's toolkit, and a desktop application that scripts are tried in.

set(PELLMAR_PLATFORM linux)

# The system's own linker cannot read what clang leaves for it to optimize.
set(PELLMAR_ACROSS_FILES_LINK_OPTIONS -fuse-ld=lld)
# A library's own functions are called directly, as they are on a Mac.
set(PELLMAR_MODULE_LINK_OPTIONS LINKER:-Bsymbolic-functions)

# A test that opens windows gets a display of its own.
set(PELLMAR_DISPLAY "${PROJECT_SOURCE_DIR}/linux/cocoa/testing/with-display")

set(COCOA_TESTS ${PELLMAR_TESTS})
add_subdirectory(linux/cocoa)
add_subdirectory(linux/host)
