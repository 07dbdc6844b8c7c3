# Keys and mouse events that do what they do on a Mac.
set(events_categories
  events/NSButton+KeyEquivalent.m
  events/NSWindow+BackgroundDrag.m
  events/NSWindow+KeyDown.m
  events/NSWindow+OrderOut.m)
# Overriding what GNUstep's classes have is their purpose.
set_source_files_properties(${events_categories} PROPERTIES
  COMPILE_OPTIONS -Wno-objc-protocol-method-implementation)
target_sources(platform_appkit PRIVATE ${events_categories}
  events/AtLaunch.m
  events/FirstClick.m
  events/KeyboardFocus.m
  events/NSControl+WindowDrag.m
  events/PendingEvents.m)
