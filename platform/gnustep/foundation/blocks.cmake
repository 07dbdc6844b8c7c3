target_sources(platform_foundation PRIVATE
  blocks/BlockClasses.m
  blocks/BlockLayout.c
  blocks/BlockRuntime.m
  blocks/Protocol+ReferenceCounting.m
  blocks/ProtocolHolder.m)
# libobjc cannot forget a class: once loaded, the library stays.
target_link_options(platform_foundation PRIVATE -Wl,-z,nodelete)
