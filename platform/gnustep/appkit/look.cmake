# Layer-backed views, fonts, colors, appearances, controls and windows that look as on a Mac.
find_package(X11 REQUIRED)
target_sources(platform_appkit PRIVATE
  look/AppKitVersion.m
  look/AppearanceChange.m
  look/AquaButton.m
  look/AquaTheme.m
  look/AttachedState.m
  look/CALayer.m
  look/CGColor.m
  look/ControlInsets.m
  look/FocusVisibility.m
  look/ImageInterpolation.m
  look/LayerOfView.m
  look/MethodReplacement.m
  look/NSAppearance+Matching.m
  look/NSApplication+ActivationPolicy.m
  look/NSApplication+Appearance.m
  look/NSApplication+Look.m
  look/NSCell+Accessibility.m
  look/NSColor+Spaces.m
  look/NSColorSpace+Spaces.m
  look/NSFont+SystemWeight.m
  look/NSImageNames.m
  look/NSProcessInfo+OperatingSystemVersion.m
  look/NSTextFieldCell+Border.m
  look/NSTextFieldCell+Label.m
  look/NSView+Accessibility.m
  look/NSView+Appearance.m
  look/NSView+Layer.m
  look/NSWindow+Accessibility.m
  look/NSWindow+Appearance.m
  look/NSWindow+Center.m
  look/ObservedDealloc.m
  look/RoundedOutline.cpp
  look/ServerOfWindow.m
  look/SpaceColor.m
  look/WindowOutline.mm)
target_link_libraries(platform_appkit PRIVATE X11::X11 X11::Xext)
