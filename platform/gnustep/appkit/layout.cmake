# Auto Layout: constraints, the visual format language, intrinsic sizes and the solver.
set(layout_categories
  layout/LayoutDirection.mm
  layout/NSButton+Layout.mm
  layout/NSImageView+Layout.mm
  layout/NSLayoutConstraint+Platform.mm
  layout/NSLayoutConstraint+VisualFormat.mm
  layout/NSTextField+Layout.mm
  layout/NSView+Alignment.mm
  layout/NSView+Constraints.mm
  layout/NSView+IntrinsicSize.mm
  layout/NSView+LayoutPass.mm
  layout/NSWindow+Layout.mm)
# Overriding what GNUstep's classes have is their purpose.
set_source_files_properties(${layout_categories} PROPERTIES
  COMPILE_OPTIONS -Wno-objc-protocol-method-implementation)
target_sources(platform_appkit PRIVATE
  ${layout_categories}
  layout/ConstraintSystem.cpp
  layout/LayoutEngine.mm
  layout/LayoutHooks.mm
  layout/LayoutModel.mm
  layout/LayoutState.mm
  layout/PlatformLayoutConstraint.mm
  layout/VisualFormat.cpp)
target_include_directories(platform_appkit PRIVATE "${CMAKE_CURRENT_LIST_DIR}/layout")
