# A Mac: Apple's toolkit, and what Apple's tools are told.

set(PELLMAR_PLATFORM macos)

add_library(Cocoa::Foundation INTERFACE IMPORTED GLOBAL)
target_link_libraries(Cocoa::Foundation INTERFACE "-framework Foundation")
add_library(Cocoa::AppKit INTERFACE IMPORTED GLOBAL)
target_link_libraries(Cocoa::AppKit INTERFACE "-framework AppKit" "-framework QuartzCore")

target_compile_options(pellmar_flags INTERFACE
  $<$<COMPILE_LANGUAGE:OBJC,OBJCXX>:-fno-objc-arc>)
add_compile_options(-Werror=unguarded-availability)

# CMAKE_OSX_DEPLOYMENT_TARGET is one for all architectures, and arm64's oldest system is newer. This stands
# behind it in each command, where the last one counts.
if("arm64" IN_LIST CMAKE_OSX_ARCHITECTURES)
  add_compile_options("SHELL:-Xarch_arm64 -mmacosx-version-min=11.0")
  add_link_options("SHELL:-Xarch_arm64 -mmacosx-version-min=11.0")
endif()

set(PELLMAR_MODULE_LINK_OPTIONS LINKER:-undefined,dynamic_lookup,-dead_strip,-dead_strip_dylibs,-adhoc_codesign)

# Tests run on the system that builds them, whatever the product's oldest one lacks, and use what both
# toolkits have, even if a Mac has something newer.
set(PELLMAR_TEST_OPTIONS
  -Wno-unguarded-availability -Wno-deprecated-declarations -D_LIBCPP_DISABLE_AVAILABILITY)
